#include "sandbox/server/journal.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>

#include "base/files.h"

namespace brickfall::sandbox {

using nlohmann::json;

bool Journal::Open(const std::string& path, const std::function<bool(const json&)>& replay,
                   std::string& error) {
    Close();
    std::size_t good = 0;
    std::string text;  // as long as the chain: the sandbox's own, and without a limit
    if (ReadFile(path, text, SIZE_MAX) == FileState::kUnreadable) {
        error = "cannot read the journal " + path;
        return false;
    }
    int number = 0;
    for (std::size_t end = 0; (end = text.find('\n', good)) != std::string::npos; good = end + 1) {
        ++number;
        const json line = json::parse(text.begin() + static_cast<std::ptrdiff_t>(good),
                                      text.begin() + static_cast<std::ptrdiff_t>(end), nullptr, false);
        if (!line.is_object() || !replay(line)) {
            error = "line " + std::to_string(number) + " of the journal " + path + " makes no sense";
            return false;
        }
    }
    file_ = ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (file_ < 0 || ::ftruncate(file_, static_cast<off_t>(good)) != 0) {
        error = "cannot write the journal " + path + ": " + std::strerror(errno);
        Close();
        return false;
    }
    return true;
}

void Journal::Close() {
    if (file_ >= 0) ::close(file_);
    file_ = -1;
}

void Journal::Write(const json& line) {
    if (file_ < 0) return;
    const std::string text = line.dump(-1, ' ', false, json::error_handler_t::replace) + "\n";
    std::size_t written = 0;
    while (written < text.size()) {
        const ssize_t put = ::write(file_, text.data() + written, text.size() - written);
        if (put < 0 && errno == EINTR) continue;
        if (put <= 0) {
            std::fprintf(stderr, "sandbox: the journal cannot be written: %s\n", std::strerror(errno));
            return;
        }
        written += static_cast<std::size_t>(put);
    }
}

}  // namespace brickfall::sandbox
