// headless_browser.h - Debian's Chromium without a window, told through a pipe what to open and to evaluate.
// It ends with its scope.
#pragma once

#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <string_view>

#include "base/files.h"
#include "tests/support/child_process.h"
#include "tests/support/temp_folder.h"

namespace brickfall {

inline constexpr char kBrowser[] = "/usr/bin/chromium";

class HeadlessBrowser {
  public:
    HeadlessBrowser() {
        const std::string target =
            Ask("Target.createTarget", {{"url", "about:blank"}})["targetId"].get<std::string>();
        session_ = Ask("Target.attachToTarget", {{"targetId", target}, {"flatten", true}})["sessionId"]
                       .get<std::string>();
        Ask("Emulation.setEmulatedMedia",
            {{"features", {{{"name", "prefers-reduced-motion"}, {"value", "reduce"}}}}});
    }
    ~HeadlessBrowser() {
        Send("Browser.close", nlohmann::json::object());
        while (process_.ReadLine()) continue;
    }
    HeadlessBrowser(const HeadlessBrowser&) = delete;
    HeadlessBrowser& operator=(const HeadlessBrowser&) = delete;

    void SetSize(int w, int h) {
        Ask("Emulation.setDeviceMetricsOverride",
            {{"width", w}, {"height", h}, {"deviceScaleFactor", 1}, {"mobile", false}});
    }

    // In front of every page's own scripts.
    void BeforeScripts(const std::string& statement) {
        Ask("Page.enable", nlohmann::json::object());
        Ask("Page.addScriptToEvaluateOnNewDocument", {{"source", statement}});
    }

    // Until the page's own script says that it is ready.
    void Open(const std::string& path) {
        Ask("Page.navigate", {{"url", "file://" + path}});
        Evaluate(
            "new Promise(done => { const look = () => document.documentElement?.dataset.ready ? done(1) :"
            " setTimeout(look, 5); look(); })");
    }

    // The value of an expression, or of what it promises.
    nlohmann::json Evaluate(const std::string& expression) {
        const nlohmann::json answer =
            Ask("Runtime.evaluate",
                {{"expression", expression}, {"awaitPromise", true}, {"returnByValue", true}});
        if (answer.contains("exceptionDetails")) throw std::runtime_error(answer.dump());
        return answer["result"].contains("value") ? answer["result"]["value"] : nlohmann::json();
    }

    std::string TextOf(const std::string& id) {
        return Evaluate("document.getElementById('" + id + "').textContent").get<std::string>();
    }

  private:
    void Send(std::string_view method, nlohmann::json parameters) {
        nlohmann::json message = {{"id", ++last_id_}, {"method", method}, {"params", std::move(parameters)}};
        if (!session_.empty()) message["sessionId"] = session_;
        const std::string text = message.dump();
        process_.Write(std::string_view(text.c_str(), text.size() + 1));
    }

    nlohmann::json Ask(std::string_view method, nlohmann::json parameters) {
        Send(method, std::move(parameters));
        while (const auto line = process_.ReadLine()) {
            const nlohmann::json answer = nlohmann::json::parse(*line);
            if (answer.value("id", 0) != last_id_) continue;
            if (answer.contains("error")) throw std::runtime_error(*line);
            return answer["result"];
        }
        throw std::runtime_error("the browser is gone");
    }

    TempFolder profile_;
    // The pipe's messages end in a zero byte, on the file numbers 3 and 4.
    ChildProcess process_{"/bin/sh",
                          {"-c", std::string(kBrowser) +
                                     " --headless=new --no-sandbox --disable-gpu --hide-scrollbars"
                                     " --disable-background-networking --no-first-run"
                                     " --user-data-dir=" +
                                     profile_.Path() +
                                     " --remote-debugging-pipe 3<&0 4>&1 </dev/null >/dev/null 2>&1"
                                     " | stdbuf -o0 tr '\\000' '\\n'"}};
    std::string session_;
    int last_id_ = 0;
};

}  // namespace brickfall
