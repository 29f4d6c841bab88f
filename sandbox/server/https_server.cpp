#include "sandbox/server/https_server.h"

#include <arpa/inet.h>
#include <httplib.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <list>
#include <mutex>
#include <thread>
#include <utility>

#include "base/files.h"
#include "base/text.h"

namespace brickfall::sandbox {
namespace {

constexpr int kBacklog = 1024;       // a wallet may list a thousand addresses at once
constexpr int kIdleMs = 30'000;      // how long a client may take over the next bytes
constexpr int kOutOfThreadsMs = 50;  // pause before another try to take a connection
constexpr std::size_t kLongestBody = 256U << 20;

class Descriptor {
  public:
    explicit Descriptor(int number = -1) : number_(number) {}
    Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(number_, other.number_);
        return *this;
    }
    ~Descriptor() {
        if (number_ >= 0) ::close(number_);
    }
    int Get() const { return number_; }

  private:
    int number_;
};

void Raise(const Descriptor& event) {
    const uint64_t one = 1;
    while (::write(event.Get(), &one, sizeof(one)) < 0 && errno == EINTR) {
    }
}

// TLS over a non-blocking socket. Every wait ends when `stop_event` is raised.
class TlsStream : public httplib::Stream {
  public:
    TlsStream(int socket, int stop_event, SSL_CTX* context)
        : socket_(socket), stop_event_(stop_event), tls_(SSL_new(context)) {}

    bool Handshake() {
        return tls_ && SSL_set_fd(tls_.get(), socket_) == 1 &&
               Drive([this] { return SSL_accept(tls_.get()); }) == 1;
    }

    // From now on nothing reaches the client any more.
    void Mute() { muted_ = true; }
    bool Muted() const { return muted_; }

    void SayGoodbye() {
        if (!muted_) SSL_shutdown(tls_.get());
    }

    // See WaitFunction. What a client sends meanwhile is left unread.
    bool Wait(int64_t milliseconds) const {
        const int limit =
            milliseconds < 0 ? -1 : static_cast<int>(std::min<int64_t>(milliseconds, 86'400'000));
        pollfd watched[2] = {{socket_, POLLRDHUP, 0}, {stop_event_, POLLIN, 0}};
        int raised = 0;
        do {
            raised = ::poll(watched, 2, limit);
        } while (raised < 0 && errno == EINTR);
        return raised == 0;
    }

    bool is_readable() const override { return SSL_pending(tls_.get()) > 0 || Ready(POLLIN, 0); }
    bool is_writable() const override { return !muted_ && Ready(POLLOUT, kIdleMs); }

    ssize_t read(char* data, size_t size) override {
        return Drive([&] { return SSL_read(tls_.get(), data, ClampSize(size)); });
    }

    ssize_t write(const char* data, size_t size) override {
        if (muted_) return -1;
        return Drive([&] { return SSL_write(tls_.get(), data, ClampSize(size)); });
    }

    void get_remote_ip_and_port(std::string& ip, int& port) const override { Local(ip, port); }
    void get_local_ip_and_port(std::string& ip, int& port) const override { Local(ip, port); }
    socket_t socket() const override { return socket_; }

  private:
    struct FreeTls {
        void operator()(SSL* tls) const { SSL_free(tls); }
    };

    static int ClampSize(size_t size) { return static_cast<int>(std::min<size_t>(size, 1U << 30)); }

    // Both ends are on this machine, and nobody asks which port the client has.
    static void Local(std::string& ip, int& port) {
        ip = "127.0.0.1";
        port = 0;
    }

    bool Ready(short events, int limit_ms) const {
        pollfd watched[2] = {{socket_, events, 0}, {stop_event_, POLLIN, 0}};
        int raised = 0;
        do {
            raised = ::poll(watched, 2, limit_ms);
        } while (raised < 0 && errno == EINTR);
        return raised > 0 && watched[1].revents == 0;
    }

    template <typename Operation>
    int Drive(Operation operation) {
        for (;;) {
            ERR_clear_error();
            const int done = operation();
            if (done > 0) return done;
            const int why = SSL_get_error(tls_.get(), done);
            const bool again = (why == SSL_ERROR_WANT_READ && Ready(POLLIN, kIdleMs)) ||
                               (why == SSL_ERROR_WANT_WRITE && Ready(POLLOUT, kIdleMs));
            if (!again) {
                muted_ = muted_ || why != SSL_ERROR_ZERO_RETURN;  // no more TLS on a broken connection
                return -1;
            }
        }
    }

    const int socket_;
    const int stop_event_;
    std::unique_ptr<SSL, FreeTls> tls_;
    bool muted_ = false;
};

// The library calls the handler with no word of the connection, and does so on the connection's own thread.
thread_local TlsStream* current_stream = nullptr;

std::string HostName(const httplib::Request& request) {
    std::string host = Lower(request.get_header_value("Host"));
    return host.substr(0, host.find(':'));
}

// Only the library's reading and writing of HTTP is used; sockets, TLS and threads are this file's own.
class HttpCore : public httplib::Server {
  public:
    HttpCore(int listening_socket, HttpHandler handler) : handler_(std::move(handler)) {
        svr_sock_ = listening_socket;  // without one it takes itself to be shutting down, and cuts answers
        set_payload_max_length(kLongestBody);
        const auto serve = [this](const httplib::Request& request, httplib::Response& response) {
            Answer(request, response);
        };
        Get("[^]*", serve).Post("[^]*", serve).Delete("[^]*", serve).Put("[^]*", serve);
    }

    void Serve(TlsStream& stream) {
        current_stream = &stream;
        bool closed = false;
        process_request(stream, /*close_connection=*/true, closed, [](httplib::Request&) {});
        current_stream = nullptr;
    }

  private:
    void Answer(const httplib::Request& request, httplib::Response& response) {
        TlsStream& stream = *current_stream;
        const HttpReply reply =
            handler_({request.method,
                      HostName(request),
                      request.target,
                      request.path,
                      {request.params.begin(), request.params.end()},
                      request.body},
                     [&stream](int64_t milliseconds) { return stream.Wait(milliseconds); });
        if (reply.end == HttpReply::End::kDropped) {
            stream.Mute();
            return;
        }
        response.status = reply.status;
        for (const auto& [name, value] : reply.headers) response.set_header(name, value);
        if (reply.end == HttpReply::End::kWhole) {
            response.set_content(reply.body, reply.content_type);
            return;
        }
        const std::string half = reply.body.substr(0, reply.body.size() / 2);
        response.set_content_provider(reply.body.size(), reply.content_type,
                                      [half, &stream](size_t, size_t, httplib::DataSink& sink) {
                                          sink.write(half.data(), half.size());
                                          stream.Mute();
                                          return false;
                                      });
    }

    HttpHandler handler_;
};

struct Connection {
    Descriptor socket;
    std::thread thread;
    std::atomic<bool> done = false;
};

}  // namespace

struct HttpsServer::Impl {
    std::mutex mutex;  // start and stop, one at a time
    std::atomic<int> port = 0;
    TlsContext context;
    Descriptor listening;
    Descriptor stop_event;  // raised once, never taken back
    Descriptor done_event;  // a connection is done
    std::unique_ptr<HttpCore> core;
    std::thread acceptor;
    std::list<Connection> connections;  // of the acceptor alone
    std::mutex open_mutex;              // held while a connection is taken: it waits, or it is counted
    std::condition_variable nothing_open;
    int open = 0;  // connections taken and not yet over; guarded by open_mutex

    bool Listen(int wanted_port);
    void Accept();
    Descriptor TakeSocket();
    void CountOver();
    void TakeConnection();
    void Converse(Connection& connection);
    void JoinDone();
    void WaitUntilIdle();
    void Stop();
};

bool HttpsServer::Impl::Listen(int wanted_port) {
    listening = Descriptor(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    const int one = 1;
    sockaddr_in place = {};
    place.sin_family = AF_INET;
    place.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    place.sin_port = htons(static_cast<uint16_t>(wanted_port));
    socklen_t size = sizeof(place);
    auto* const address = reinterpret_cast<sockaddr*>(&place);
    if (listening.Get() < 0 ||
        ::setsockopt(listening.Get(), SOL_SOCKET, SO_REUSEADDR, &one, sizeof(one)) != 0 ||
        ::bind(listening.Get(), address, size) != 0 || ::listen(listening.Get(), kBacklog) != 0 ||
        ::getsockname(listening.Get(), address, &size) != 0) {
        return false;
    }
    port = ntohs(place.sin_port);
    return true;
}

void HttpsServer::Impl::Accept() {
    for (;;) {
        pollfd watched[3] = {
            {listening.Get(), POLLIN, 0}, {stop_event.Get(), POLLIN, 0}, {done_event.Get(), POLLIN, 0}};
        ::poll(watched, 3, -1);
        if (watched[1].revents != 0) break;
        if (watched[2].revents != 0) JoinDone();
        if (watched[0].revents != 0) TakeConnection();
    }
    for (Connection& connection : connections) connection.thread.join();
    connections.clear();
}

Descriptor HttpsServer::Impl::TakeSocket() {
    const std::lock_guard lock(open_mutex);
    Descriptor socket(::accept4(listening.Get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    const int why = errno;
    if (socket.Get() >= 0) {
        ++open;
    } else {
        nothing_open.notify_all();  // it may have been the last that waited
    }
    errno = why;
    return socket;
}

void HttpsServer::Impl::CountOver() {
    const std::lock_guard lock(open_mutex);
    if (--open == 0) nothing_open.notify_all();
}

void HttpsServer::Impl::WaitUntilIdle() {
    std::unique_lock lock(open_mutex);
    nothing_open.wait(lock, [this] {
        pollfd waiting = {listening.Get(), POLLIN, 0};
        return open == 0 && ::poll(&waiting, 1, 0) == 0;
    });
}

void HttpsServer::Impl::TakeConnection() {
    Descriptor socket = TakeSocket();
    if (socket.Get() < 0) {
        // Out of descriptors: the client stays in the backlog until a connection is done.
        if (errno == EMFILE || errno == ENFILE) ::poll(nullptr, 0, kOutOfThreadsMs);
        return;
    }
    Connection& connection = connections.emplace_back();
    connection.socket = std::move(socket);
    try {
        connection.thread = std::thread([this, &connection] { Converse(connection); });
    } catch (const std::system_error&) {
        connections.pop_back();  // no thread to be had: the client sees a closed connection
        CountOver();
    }
}

void HttpsServer::Impl::Converse(Connection& connection) {
    {
        TlsStream stream(connection.socket.Get(), stop_event.Get(), context.get());
        if (stream.Handshake()) {
            core->Serve(stream);
            stream.SayGoodbye();
        }
    }
    // The acceptor closes it; other processes may hold copies, so this is what the client notices.
    ::shutdown(connection.socket.Get(), SHUT_RDWR);
    CountOver();
    connection.done = true;
    Raise(done_event);
}

void HttpsServer::Impl::JoinDone() {
    uint64_t count = 0;
    static_cast<void>(::read(done_event.Get(), &count, sizeof(count)) > 0);
    for (auto each = connections.begin(); each != connections.end();) {
        if (each->done) {
            each->thread.join();
            each = connections.erase(each);
        } else {
            ++each;
        }
    }
}

void HttpsServer::Impl::Stop() {
    if (!acceptor.joinable()) return;
    Raise(stop_event);
    acceptor.join();
    port = 0;
    core.reset();
    listening = Descriptor();
    context.reset();
}

HttpsServer::HttpsServer() : impl_(std::make_unique<Impl>()) {}
HttpsServer::~HttpsServer() { Stop(); }

bool HttpsServer::Start(int port, TlsContext context, HttpHandler handler, std::string& error) {
    const std::lock_guard lock(impl_->mutex);
    if (impl_->acceptor.joinable()) {
        error = "it serves already";
        return false;
    }
    RaiseDescriptorLimit();
    impl_->stop_event = Descriptor(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    impl_->done_event = Descriptor(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (impl_->stop_event.Get() < 0 || impl_->done_event.Get() < 0 || !impl_->Listen(port)) {
        error = "cannot listen on 127.0.0.1:" + std::to_string(port) + ": " + std::strerror(errno);
        impl_->listening = Descriptor();
        return false;
    }
    impl_->context = std::move(context);
    impl_->core = std::make_unique<HttpCore>(impl_->listening.Get(), std::move(handler));
    impl_->acceptor = std::thread([this] { impl_->Accept(); });
    return true;
}

void HttpsServer::Stop() {
    const std::lock_guard lock(impl_->mutex);
    impl_->Stop();
}

int HttpsServer::Port() const { return impl_->port; }
void HttpsServer::WaitUntilIdle() const { impl_->WaitUntilIdle(); }

}  // namespace brickfall::sandbox
