// headless_firefox.h - Debian's Firefox without a window, told over its Marionette port what to open and to
// evaluate. It looks up no name, and ends with its scope.
#pragma once

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <string_view>

#include "base/files.h"
#include "tests/support/child_process.h"
#include "tests/support/temp_folder.h"

namespace brickfall {

inline constexpr char kFirefox[] = "/usr/bin/firefox-esr";

class HeadlessFirefox {
  public:
    HeadlessFirefox() {
        constexpr std::string_view kTold = "Listening on port ";  // of its own choice
        std::optional<std::string> line;
        std::size_t at = std::string::npos;
        while (at == std::string::npos && (line = process_.ReadLine())) at = line->find(kTold);
        if (!line) throw std::runtime_error("the browser did not start");
        sockaddr_in place{};
        place.sin_family = AF_INET;
        place.sin_port = htons(static_cast<uint16_t>(std::stoul(line->substr(at + kTold.size()))));
        place.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (::connect(socket_, reinterpret_cast<const sockaddr*>(&place), sizeof place) != 0)
            throw std::runtime_error("the browser takes no orders");
        ReadMessage();  // who it is
        Ask("WebDriver:NewSession", nlohmann::json::object());
    }
    ~HeadlessFirefox() {
        Send("Marionette:Quit", {{"flags", {"eForceQuit"}}});
        while (process_.ReadLine()) continue;
        ::close(socket_);
    }
    HeadlessFirefox(const HeadlessFirefox&) = delete;
    HeadlessFirefox& operator=(const HeadlessFirefox&) = delete;

    // Until the page's own script says that it is ready.
    void Open(const std::string& path) {
        Ask("WebDriver:Navigate", {{"url", "file://" + path}});
        Evaluate(
            "new Promise(ready => { const look = () => document.documentElement.dataset.ready ? ready(1) :"
            " setTimeout(look, 5); look(); })");
    }

    // The value of an expression, or of what it promises.
    nlohmann::json Evaluate(const std::string& expression) {
        return Ask("WebDriver:ExecuteAsyncScript",
                   {{"script", "Promise.resolve(" + expression + ").then(arguments[0])"},
                    {"args", nlohmann::json::array()}})["value"];
    }

    std::string TextOf(const std::string& id) {
        return Evaluate("document.getElementById('" + id + "').textContent").get<std::string>();
    }

  private:
    // A message is its length, a colon, and JSON.
    void Send(std::string_view command, nlohmann::json parameters) {
        const std::string text = nlohmann::json({0, ++last_id_, command, std::move(parameters)}).dump();
        const std::string message = std::to_string(text.size()) + ":" + text;
        static_cast<void>(!::send(socket_, message.data(), message.size(), MSG_NOSIGNAL));
    }

    void Read(char* to, std::size_t size) {
        if (::recv(socket_, to, size, MSG_WAITALL) != static_cast<ssize_t>(size))
            throw std::runtime_error("the browser is gone");
    }

    nlohmann::json ReadMessage() {
        std::string size;
        for (char c = 0; c != ':'; size += c) Read(&c, 1);
        std::string text(std::stoul(size), '\0');
        Read(text.data(), text.size());
        return nlohmann::json::parse(text);
    }

    nlohmann::json Ask(std::string_view command, nlohmann::json parameters) {
        Send(command, std::move(parameters));
        const nlohmann::json answer = ReadMessage();  // kind, number, fault, result
        if (!answer[2].is_null()) throw std::runtime_error(answer.dump());
        return answer[3];
    }

    TempFolder profile_;
    bool settings_ =
        WriteFile(profile_.Path() + "/user.js",
                  "user_pref('marionette.port', 0);\nuser_pref('network.dns.disabled', true);\n");
    ChildProcess process_{"/usr/bin/env",
                          {"HOME=" + profile_.Path(), kFirefox, "--headless", "--marionette", "--no-remote",
                           "--profile", profile_.Path()}};
    int socket_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    int last_id_ = 0;
};

}  // namespace brickfall
