// https_server.h - HTTP over TLS on 127.0.0.1: one connection a thread, one request a connection, and answers
// that can end badly on purpose. The HTTP server library stays behind this header.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "sandbox/server/certificates.h"

namespace brickfall::sandbox {

struct HttpRequest {
    std::string method;
    std::string host;    // lower case, without a port
    std::string target;  // as asked for, with the query
    std::string path;    // decoded, without the query
    std::multimap<std::string, std::string> query;
    std::string body;
};

struct HttpReply {
    enum class End { kWhole, kDropped, kCut };

    int status = 200;
    std::string body;
    std::string content_type = "application/json";
    std::map<std::string, std::string> headers;
    End end = End::kWhole;  // kDropped: nothing is sent; kCut: all of the header and half of the body
};

// Waits for so many milliseconds, or without end for a negative number. False as soon as the client has gone
// or the server stops. In real time: the client is another party, with a clock of its own.
using WaitFunction = std::function<bool(int64_t milliseconds)>;

using HttpHandler = std::function<HttpReply(const HttpRequest&, const WaitFunction& wait)>;

class HttpsServer {
  public:
    HttpsServer();
    ~HttpsServer();  // stops
    HttpsServer(const HttpsServer&) = delete;
    HttpsServer& operator=(const HttpsServer&) = delete;

    // Serves on the port, or on a free one for 0. `handler` is called from many threads at once. A server
    // that was stopped can be started again.
    bool Start(int port, TlsContext context, HttpHandler handler, std::string& error);

    // Ends every connection, whatever it waits for, and returns when no thread of the server is left.
    void Stop();

    int Port() const;  // 0 unless it serves

    // Returns once no connection is open and none waits to be taken, so that every request sent before the
    // call has been dealt with, even where its client has gone. Not beside Start or Stop.
    void WaitUntilIdle() const;

  private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace brickfall::sandbox
