// replay_main.cpp - runs the fuzz target that it is linked with over every file of a folder, in name order.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "base/files.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size);

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s FOLDER\n", argv[0]);
        return 2;
    }
    std::error_code error;
    std::vector<std::string> inputs;
    for (const auto& entry : std::filesystem::directory_iterator(argv[1], error)) {
        if (entry.is_regular_file()) inputs.push_back(entry.path().string());
    }
    if (error || inputs.empty()) {
        std::fprintf(stderr, "%s: no inputs in %s\n", argv[0], argv[1]);
        return 1;
    }
    std::sort(inputs.begin(), inputs.end());
    for (const std::string& input : inputs) {
        const auto content = brickfall::ReadFile(input);
        if (!content) {
            std::fprintf(stderr, "%s: cannot read %s\n", argv[0], input.c_str());
            return 1;
        }
        // A copy of exactly the input's size, so that a sanitizer sees every read behind its end.
        const auto bytes = std::make_unique<uint8_t[]>(content->size());
        std::copy(content->begin(), content->end(), bytes.get());
        LLVMFuzzerTestOneInput(bytes.get(), content->size());
    }
    std::printf("%zu inputs replayed\n", inputs.size());
    return 0;
}
