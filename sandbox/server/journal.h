// journal.h - the optional file that a sandbox's state is kept in: one line of JSON for each thing that
// happened, in order. No lock of its own: the caller guards it.
#pragma once

#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <string>

namespace brickfall::sandbox {

class Journal {
  public:
    Journal() = default;
    ~Journal() { Close(); }
    Journal(const Journal&) = delete;
    Journal& operator=(const Journal&) = delete;

    // Hands every line of the file to `replay`, then stays open for writing. A last line that a kill has cut
    // short is dropped. False with `error` when the file cannot be used or `replay` refuses a line.
    bool Open(const std::string& path, const std::function<bool(const nlohmann::json&)>& replay,
              std::string& error);
    void Close();

    // Nothing happens while it is not open. A line that cannot be written is reported on the error stream.
    void Write(const nlohmann::json& line);

  private:
    int file_ = -1;
};

}  // namespace brickfall::sandbox
