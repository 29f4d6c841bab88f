// reply_writer REPLY - another wallet application: waits for the first connect request and answers it with
// the bytes REPLY, whatever they are, in one step. Prints "answered" when the reply is in place.
#include <cstdio>
#include <filesystem>
#include <string>
#include <string_view>

#include "base/clock.h"
#include "base/files.h"
#include "wallet/store/shared_store.h"

int main(int count, char** arguments) {
    if (count != 2) return 2;
    constexpr std::string_view kRequestEnd = ".req.json";
    const std::string folder = brickfall::StoreRoot() + "/connect";
    brickfall::MakeFolders(folder);
    for (int look = 0; look < 4000; ++look) {
        for (const auto& entry : std::filesystem::directory_iterator(folder)) {
            std::string path = entry.path().string();
            if (!path.ends_with(kRequestEnd)) continue;
            path.replace(path.size() - kRequestEnd.size(), kRequestEnd.size(), ".rep.json");
            if (!brickfall::ReplaceFile(path, arguments[1])) return 1;
            std::puts("answered");
            return 0;
        }
        brickfall::SleepMs(5);
    }
    return 1;
}
