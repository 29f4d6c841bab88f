#include "net/http_client.h"

#include <gtest/gtest.h>
#include <httplib.h>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <new>
#include <nlohmann/json.hpp>
#include <thread>
#include <vector>

#include "base/files.h"
#include "base/workers.h"
#include "deployment/sandbox_route.h"
#include "sandbox/server/certificates.h"
#include "tests/support/manual_clock.h"
#include "tests/support/temp_folder.h"

namespace brickfall {
namespace {

using nlohmann::json;

struct Answer {
    int status = 200;
    std::string body = {};
    std::string location = {};
    bool cut = false;        // announces more than it sends
    bool hold = false;       // waits for Release
    std::size_t blanks = 0;  // sent behind the body
};

// A server on a free port that gives the scripted answers in turn, the last one again and again. Without TLS
// it answers to http URLs, and sends long bodies in less time.
class Server {
  public:
    explicit Server(std::vector<Answer> answers = {}, bool with_tls = true) : answers_(std::move(answers)) {
        if (!with_tls) server_ = std::make_unique<httplib::Server>();
        const auto handler = [this](const httplib::Request& request, httplib::Response& response) {
            Reply(request, response);
        };
        server_->Get(".*", handler);
        server_->Post(".*", handler);
        server_->set_tcp_nodelay(true);
        port_ = server_->bind_to_any_port("127.0.0.1");
        thread_ = std::thread([this] { server_->listen_after_bind(); });
        Route(1);
    }

    ~Server() {
        Release();
        // Stopping before the loop has begun would leave it running.
        while (!server_->is_running()) std::this_thread::yield();
        server_->stop();
        thread_.join();
        SetConnectRoute({});
    }

    void Route(int timeout_divisor, const std::string& authority = "") {
        const std::string file = sandbox::AuthorityFile(authority.empty() ? folder_.Path() : authority);
        SetConnectRoute({"::127.0.0.1:" + std::to_string(port_), file, timeout_divisor});
    }

    // Begins anew.
    void Script(std::vector<Answer> answers) {
        const std::lock_guard lock(mutex_);
        answers_ = std::move(answers);
        asked_.clear();
    }

    void Release() {
        released_ = true;
        released_.notify_all();
    }

    std::vector<httplib::Request> Asked() {
        const std::lock_guard lock(mutex_);
        return asked_;
    }

  private:
    void Reply(const httplib::Request& request, httplib::Response& response) {
        Answer answer;
        {
            const std::lock_guard lock(mutex_);
            answer = answers_[std::min(asked_.size(), answers_.size() - 1)];
            asked_.push_back(request);
        }
        if (answer.hold) released_.wait(false);
        response.status = answer.status;
        if (!answer.location.empty()) response.set_header("Location", answer.location);
        const std::size_t size = answer.body.size();
        if (size + answer.blanks == 0) return;
        response.set_content_provider(
            size + answer.blanks + (answer.cut ? 1 : 0), "text/plain",
            [answer, size](std::size_t offset, std::size_t length, httplib::DataSink& sink) {
                if (offset < size) return sink.write(answer.body.data() + offset, size - offset);
                static const std::string blanks(1 << 20, ' ');
                return !answer.cut && sink.write(blanks.data(), std::min(length, blanks.size()));
            });
    }

    TempFolder folder_;
    std::string error_;
    const sandbox::TlsContext tls_ =
        sandbox::MakeServerContext(folder_.Path(), {"service.test", "orvane.test"}, error_);
    std::unique_ptr<httplib::Server> server_ = std::make_unique<httplib::SSLServer>(
        SSL_CTX_get0_certificate(tls_.get()), SSL_CTX_get0_privatekey(tls_.get()));
    std::atomic<bool> released_ = false;
    std::mutex mutex_;
    std::vector<Answer> answers_;          // guarded by mutex_
    std::vector<httplib::Request> asked_;  // guarded by mutex_
    int port_ = 0;
    std::thread thread_;
};

constexpr char kUrl[] = "https://service.test/start";
constexpr char kPlainUrl[] = "http://service.test/start";

class HttpClient : public testing::Test {
  protected:
    static void SetUpTestSuite() { StartNetwork(); }
    static void TearDownTestSuite() { StopNetwork(); }

    bool Get() { return HttpGet(kUrl, body_, error_, 10); }
    bool Post(int attempts) { return HttpPostJson(kUrl, "{}", body_, error_, 10, attempts); }

    ManualClock clock_;
    std::string body_ = "former", error_ = "former";
    json parsed_;

    using Url = const std::string&;
    const struct Function {
        std::string name;
        std::function<bool(Url url)> call;
        const char* user_agent;
    } functions_[6] = {
        {"HttpGet", [this](Url url) { return HttpGet(url, body_, error_, 10); }, "Orvane-Pouch/0.1"},
        {"HttpPostJson", [this](Url url) { return HttpPostJson(url, "{\"ask\":1}", body_, error_, 10, 1); },
         "Orvane-Pouch/0.1"},
        {"HttpGetOnce", [this](Url url) { return HttpGetOnce(url, body_, error_); }, ""},
        {"FetchJson", [this](Url url) { return FetchJson(url, parsed_); }, "Brickfall/1"},
        {"FetchText", [this](Url url) { return FetchText(url, body_); }, "Brickfall/1"},
        {"FetchJsonStrict", [this](Url url) { return FetchJsonStrict(url, parsed_); }, ""},
    };
};

TEST_F(HttpClient, EachFunctionSaysWhatItIs) {
    Server server;
    for (const Function& function : functions_) {
        SCOPED_TRACE(function.name);
        server.Script({{200, "{}"}});
        EXPECT_TRUE(function.call("https://service.test/path?a=%20b"));
        ASSERT_EQ(server.Asked().size(), 1u);
        const httplib::Request asked = server.Asked()[0];
        const bool posts = function.name == "HttpPostJson";
        EXPECT_EQ(asked.method, posts ? "POST" : "GET");
        EXPECT_EQ(asked.target, "/path?a=%20b");
        EXPECT_EQ(asked.get_header_value("Host"), "service.test");
        EXPECT_EQ(asked.get_header_value("User-Agent"), function.user_agent);
        EXPECT_EQ(asked.get_header_value("Content-Type"), posts ? "application/json" : "");
        EXPECT_EQ(asked.body, posts ? "{\"ask\":1}" : "");
    }
}

TEST_F(HttpClient, EachFunctionHasItsOwnIdeaOfSuccess) {
    const struct {
        const char* name;
        std::vector<Answer> answers;
        const char* succeeds;  // HttpGet, HttpPostJson, HttpGetOnce, FetchJson, FetchText, FetchJsonStrict
    } rows[] = {
        {"object", {{200, "{\"a\":1}"}}, "yyyyyy"},
        {"other 2xx", {{201, "[1]"}}, "yyyyyn"},
        {"number", {{200, "7"}}, "yyynyy"},
        {"no JSON", {{200, "{\"a\":"}}, "yyynyn"},
        {"too deep", {{200, std::string(65, '[') + std::string(65, ']')}}, "yyynyn"},
        {"empty", {{200, ""}}, "yyynnn"},
        {"redirect", {{302, "<html>", "/end"}, {200, "[]"}}, "ynyyyy"},
        {"3xx without a target", {{300, "[]"}}, "nnnyyn"},
        {"redirect to not found", {{302, "{}", "/end"}, {404, "{}"}}, "nnnnnn"},
        {"cut", {{200, "{}", "", true}}, "nnnnnn"},
        {"redirect to a file", {{302, "{}", "file:///etc/passwd"}}, "nnnnnn"},
    };
    Server server;
    for (const auto& row : rows) {
        std::string succeeds;
        for (const Function& function : functions_) {
            server.Script(row.answers);
            succeeds += function.call(kUrl) ? 'y' : 'n';
        }
        EXPECT_EQ(succeeds, row.succeeds) << row.name;
    }
}

TEST_F(HttpClient, RateLimitIsWaitedOutByTheWalletFunctionsOnly) {
    const Answer limited{429, "{\"error\":\"slow down\"}"};
    const auto get = [this] { return Get(); };
    const auto post = [this](int attempts) { return [this, attempts] { return Post(attempts); }; };
    const struct {
        const char* name;
        std::function<bool()> call;
        std::vector<Answer> answers;
        bool succeeds;
        std::size_t requests;
        std::vector<int64_t> pauses;
    } rows[] = {
        {"get", get, {limited}, false, 4, {400, 800, 1600}},
        {"get, in the end", get, {limited, limited, {200, "fine"}}, true, 3, {400, 800}},
        {"get, then an error", get, {limited, {500, ""}, {200, ""}}, false, 2, {400}},
        {"post 2", post(2), {limited}, false, 2, {400}},
        {"post 0", post(0), {limited}, false, 0, {}},
        {"once", [this] { return HttpGetOnce(kUrl, body_, error_); }, {limited}, false, 1, {}},
        {"text", [this] { return FetchText(kUrl, body_); }, {limited}, false, 1, {}},
    };
    Server server;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const ManualClock clock;
        server.Script(row.answers);
        EXPECT_EQ(row.call(), row.succeeds);
        EXPECT_EQ(server.Asked().size(), row.requests);
        EXPECT_EQ(clock.Sleeps(), row.pauses);
    }
}

TEST_F(HttpClient, OutputsHoldTheLastAttemptOnly) {
    Server server({{429, "first"}, {200, "second"}});
    EXPECT_TRUE(Get());
    EXPECT_EQ(body_, "second");
    EXPECT_EQ(error_, "");

    server.Script({{400, "{\"error\":\"taken\"}"}});
    EXPECT_FALSE(Post(2));
    EXPECT_EQ(body_, "{\"error\":\"taken\"}") << "the body of a refusal is the caller's to read";
    EXPECT_EQ(error_, "HTTP 400 – {\"error\":\"taken\"}");

    server.Script({{429, "x"}});
    EXPECT_FALSE(Post(0));
    EXPECT_EQ(body_, "");
    EXPECT_EQ(error_, kRateLimitText);
    EXPECT_FALSE(HttpGetOnce(kUrl, body_, error_));
    EXPECT_EQ(error_, "HTTP 429") << "no words of its own";

    server.Script({{404, "nothing here"}});
    EXPECT_TRUE(HttpGet(kUrl, body_, error_, 10, /*allow_404=*/true));
    EXPECT_EQ(body_, "nothing here");

    server.Script({{500, "[1]"}});
    parsed_ = "former";
    EXPECT_FALSE(FetchJson(kUrl, parsed_));
    EXPECT_EQ(parsed_, "former");
    EXPECT_FALSE(FetchJsonStrict(kUrl, parsed_));
    EXPECT_EQ(parsed_, nullptr);

    server.Script({{302, "", "/again"}});
    EXPECT_FALSE(Get());
    EXPECT_EQ(error_, "Number of redirects hit maximum amount");
    EXPECT_EQ(server.Asked().size(), 6u) << "the request and five redirects";
}

TEST_F(HttpClient, FailureTextsCarryNoHtmlAndAtMost120Bytes) {
    const std::string long_body = "{\"error\":\"" + std::string(190, 'x');
    const std::tuple<long, std::string, std::string> rows[] = {
        {429, "{}", "HTTP 429 – WhatsOnChain is rate-limiting. Wait a few seconds and try again."},
        {500, "", "HTTP 500"},
        {502, "proxy says <HTML>", "HTTP 502"},
        {502, "\n<!DOCTYPE html>", "HTTP 502"},
        {502, "<Html>", "HTTP 502 – <Html>"},
        {400, " bad \r\n \n", "HTTP 400 –  bad"},
        {500, long_body, "HTTP 500 – " + long_body.substr(0, 120)},
        {500, std::string(119, 'a') + "  b", "HTTP 500 – " + std::string(119, 'a') + " "},
    };
    for (const auto& [status, body, text] : rows) EXPECT_EQ(DescribeHttpFailure(status, body), text) << body;
}

TEST_F(HttpClient, ASilentServiceRunsIntoTheTimeOut) {
    constexpr char kTimedOut[] = "Timeout was reached";
    Server server({{200, "late", "", false, true}});
    server.Route(/*timeout_divisor=*/100);
    EXPECT_FALSE(Get());
    EXPECT_EQ(error_, kTimedOut);
    EXPECT_FALSE(HttpPostJson(kUrl, "{}", body_, error_, 2, 4));
    EXPECT_EQ(error_, kTimedOut);
    EXPECT_LE(server.Asked().size(), 2u) << "only status 429 is tried again";
    server.Route(/*timeout_divisor=*/1'000'000);
    EXPECT_FALSE(HttpGetOnce(kUrl, body_, error_));
    EXPECT_EQ(error_, kTimedOut) << "a time-out that rounds to nothing is no endless one";
}

TEST_F(HttpClient, TheServersNameAndAuthorityAreChecked) {
    constexpr char kUntrusted[] = "SSL peer certificate or SSH remote key was not OK";
    Server server({{200, "{}"}});
    for (const Function& function : functions_) {
        EXPECT_FALSE(function.call("https://other.test/"))
            << function.name << " took another host's certificate";
    }
    const TempFolder folder;
    ASSERT_TRUE(sandbox::MakeServerContext(folder.Path(), {"service.test"}, error_));
    server.Route(1, folder.Path());
    for (const Function& function : functions_) {
        EXPECT_FALSE(function.call(kUrl)) << function.name << " took an unknown authority";
    }
    EXPECT_TRUE(server.Asked().empty());
    // A service on this machine may vouch for itself, to the one function that allows it.
    for (const char* const local : {"https://127.0.0.1/", "https://localhost/", "https://localhost:1/"}) {
        EXPECT_TRUE(HttpGetOnce(local, body_, error_)) << local;
        EXPECT_FALSE(HttpGet(local, body_, error_, 10)) << local;
        EXPECT_EQ(error_, kUntrusted);
    }
    EXPECT_FALSE(HttpGetOnce("https://service.test/https://localhost", body_, error_));
    EXPECT_EQ(error_, kUntrusted);
}

// Without a route the pinned address answers or refuses, but the name is never asked of a name server, which
// would know nothing of it.
TEST_F(HttpClient, TheFamilysHostIsPinned) {
    SetConnectRoute({});
    for (const char* const url : {"https://orvane.test/", "https://www.orvane.test/x?orvane.test"}) {
        EXPECT_FALSE(HttpGet(url, body_, error_, 10)) << url;
        EXPECT_NE(error_, "Couldn't resolve host name") << url;
    }
}

TEST_F(HttpClient, AUrlIsTakenWholeOrNotAtAllAndNamesNoFile) {
    Server server({{200, "{}"}});
    const TempFolder folder;
    ASSERT_TRUE(WriteFile(folder.Path() + "/file", "[]"));
    const std::string good = "https://service.test/a";
    for (const std::string& bad : {good + '\0' + "b", good + " b", good + "\r\nX: y", std::string(),
                                   "file://" + folder.Path() + "/file"}) {
        for (const Function& function : functions_) EXPECT_FALSE(function.call(bad)) << function.name << bad;
    }
    EXPECT_TRUE(server.Asked().empty());
}

TEST_F(HttpClient, AnAnswerWithoutAnEndIsGivenUp) {
    Server server({{.blanks = kMaxBodyBytes + 1}}, /*with_tls=*/false);
    EXPECT_FALSE(HttpGetOnce(kPlainUrl, body_, error_));
    EXPECT_NE(error_, "");
    EXPECT_LE(body_.size(), kMaxBodyBytes);

    // Each function takes a limit of its own, and counts anew for each attempt.
    const auto accepts = [&](std::size_t bytes) {
        const Answer whole{.body = "[]", .blanks = bytes - 2};
        constexpr JsonLimits kLimits = {.bytes = 1'000, .values = 1};
        std::string told;
        const auto ask = [&](const auto& call) {
            server.Script({{.status = 429, .blanks = 900}, whole});
            if (!call()) server.Script({whole});
            told += call() ? 'y' : 'n';
        };
        ask([&] { return HttpGet(kPlainUrl, body_, error_, 10, false, 1'000); });
        ask([&] { return HttpPostJson(kPlainUrl, "{}", body_, error_, 10, 2, 1'000); });
        ask([&] { return HttpGetOnce(kPlainUrl, body_, error_, 1'000); });
        ask([&] { return FetchJson(kPlainUrl, parsed_, kLimits); });
        ask([&] { return FetchText(kPlainUrl, body_, 1'000); });
        ask([&] { return FetchJsonStrict(kPlainUrl, parsed_, kLimits); });
        ask([&] {
            return HttpGetAndRead(kPlainUrl, error_, 10, 1'000, [](auto body) { return body != ""; });
        });
        return told;
    };
    EXPECT_EQ(accepts(1'000), "yyyyyyy");
    EXPECT_EQ(accepts(1'001), "nnnnnnn");
}

TEST_F(HttpClient, TheBodiesInFlightShareOneBound) {
    Server server({{.blanks = kMaxBodyBytes}}, /*with_tls=*/false);
    // Each is held while the next is fetched.
    std::size_t held = 0;
    const std::function<bool(std::string_view)> hold = [&](std::string_view body) {
        EXPECT_EQ(body.size(), kMaxBodyBytes);
        ++held;
        return HttpGetAndRead(kPlainUrl, error_, 60, kMaxBodyBytes, hold);
    };
    EXPECT_FALSE(HttpGetAndRead(kPlainUrl, error_, 60, kMaxBodyBytes, hold));
    EXPECT_EQ(held, kMaxBodyBytesInFlight / kMaxBodyBytes);
    EXPECT_NE(error_, "") << "as a broken transfer";

    server.Script({{200, "[]"}});
    EXPECT_TRUE(HttpGetOnce(kPlainUrl, body_, error_)) << "given back";
    EXPECT_FALSE(
        HttpGetAndRead(kPlainUrl, error_, 60, 2, [](std::string_view) -> bool { throw std::bad_alloc(); }));
    EXPECT_EQ(error_, kOutOfMemoryText) << "and nothing is thrown";
    EXPECT_FALSE(HttpGetAndRead(kPlainUrl, error_, 60, 2, [](std::string_view) { return false; }));
    EXPECT_EQ(error_, "");
}

TEST_F(HttpClient, StoppingTheNetworkLeavesARunningRequestAlone) {
    Server server({{200, "fine", "", false, true}});
    StartWorker([this] { Get(); });
    while (server.Asked().empty()) std::this_thread::yield();
    StopNetwork();
    server.Release();
    WaitForWorkers();
    EXPECT_EQ(body_, "fine") << error_;
}

}  // namespace
}  // namespace brickfall
