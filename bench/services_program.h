// services_program.h - the sandbox in a process of its own, so that the memory measured is the program's
// alone, and that measure.
#pragma once

#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "base/secret.h"
#include "deployment/sandbox_route.h"
#include "net/http_client.h"
#include "tests/support/child_process.h"
#include "tests/support/temp_folder.h"

namespace brickfall {

// The peak counts from here on.
inline void ResetPeak() {
    PermitDumps();  // a process that forbids them may not write there, unless it is root's
    std::ofstream("/proc/self/clear_refs") << "5";
}

inline double PeakMegabytes() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("VmHWM:")) return std::stod(line.substr(6)) / 1024;
    }
    return -1;
}

// Every request of this process goes to it.
class SandboxProgram {
  public:
    SandboxProgram()
        : program_(BRICKFALL_BINARY_DIR "/sandbox/brickfall-sandbox",
                   {"--folder", folder_.Path() + "/authority"}) {
        constexpr std::string_view kReady = "sandbox ready on ";
        const std::string line = program_.ReadUntil(kReady).value_or("");
        const std::size_t comma = line.find(',');
        if (comma == std::string::npos) return;
        SetConnectRoute({"::" + line.substr(kReady.size(), comma - kReady.size()),
                         folder_.Path() + "/authority/authority.pem", 1});
    }

    void Fund(const std::string& address, int64_t satoshis) {
        Control("fund", {{"address", address}, {"satoshis", satoshis}});
    }

    // Answers each request to the service whose target contains `path` so.
    void ReplyTo(std::string_view service, const std::string& path, const std::string& body) {
        Control("fault", {{"service", service},
                          {"kind", "reply"},
                          {"status", 200},
                          {"path_contains", path},
                          {"body", body}});
    }

    // Every answer of the service comes so much later.
    void Delay(std::string_view service, int milliseconds) {
        Control("fault", {{"service", service}, {"kind", "delay"}, {"delay_ms", milliseconds}});
    }

  private:
    static void Control(const std::string& operation, const nlohmann::json& body) {
        std::string response;
        std::string error;
        HttpPostJson("https://control.sandbox.test/" + operation, body.dump(), response, error, 10, 1);
    }

    TempFolder folder_;
    ChildProcess program_;
};

}  // namespace brickfall
