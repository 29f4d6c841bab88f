#include "sandbox/server/services.h"

#include <algorithm>
#include <charconv>
#include <nlohmann/json.hpp>

#include "base/text.h"
#include "deployment/deployment.h"

namespace brickfall::sandbox {
namespace {

using nlohmann::json;

struct UrlParts {
    std::string_view host;
    std::string_view path;
};

UrlParts Split(std::string_view url) {
    const std::size_t scheme = url.find("://");
    if (scheme != std::string_view::npos) url.remove_prefix(scheme + 3);
    const std::size_t slash = std::min(url.find('/'), url.size());
    return {url.substr(0, slash), url.substr(slash)};
}

// True when the request is for the URL or for something below it.
bool IsBelow(const HttpRequest& request, std::string_view base) {
    const UrlParts parts = Split(base);
    if (request.host != Lower(parts.host) || !request.path.starts_with(parts.path)) return false;
    return request.path.size() == parts.path.size() || request.path[parts.path.size()] == '/';
}

bool IsFamilyHost(const HttpRequest& request) {
    const std::string domain = Lower(kPaymailDomain);
    return request.host == Lower(Split(kApiBaseUrl).host) || request.host == domain ||
           request.host == "www." + domain;
}

Service FamilyService(std::string_view path) {
    if (path == "/oi/submit") return Service::kRelay;
    return path.starts_with("/oi/") ? Service::kIndexer : Service::kPaymail;
}

HttpReply DownloadPage(const std::string& build) {
    HttpReply reply;
    reply.content_type = "text/html; charset=utf-8";
    reply.body =
        "<!DOCTYPE html>\n<html><head><title>Brickfall</title></head>\n"
        "<body><h1>Brickfall</h1><p>Current build: Version " +
        build + "</p></body></html>\n";
    return reply;
}

}  // namespace

std::vector<std::string> ServedHosts() {
    const std::string domain = Lower(kPaymailDomain);
    std::vector<std::string> hosts = {domain, "www." + domain, std::string(kControlHost)};
    for (const char* url : {kApiBaseUrl, kChainApiBaseUrl, kOrdinalsApiBaseUrl, kOrdinalsContentBaseUrl,
                            kArcBroadcastUrl, kDownloadPageUrl}) {
        std::string host = Lower(Split(url).host);
        if (std::find(hosts.begin(), hosts.end(), host) == hosts.end()) hosts.push_back(std::move(host));
    }
    return hosts;
}

std::optional<Service> ServiceOf(const HttpRequest& request) {
    if (IsFamilyHost(request)) return FamilyService(request.path);
    if (IsBelow(request, kChainApiBaseUrl)) return Service::kChain;
    if (IsBelow(request, kOrdinalsContentBaseUrl)) return Service::kContent;
    if (IsBelow(request, kOrdinalsApiBaseUrl)) return Service::kOrdinals;
    if (request.host == Lower(Split(kArcBroadcastUrl).host)) return Service::kArc;
    if (IsBelow(request, kDownloadPageUrl)) return Service::kDownload;
    return std::nullopt;
}

RequestKind KindOf(Service service, const HttpRequest& request) {
    const auto has = [&request](std::string_view part) {
        return request.path.find(part) != std::string::npos;
    };
    switch (service) {
        case Service::kChain:
            if (request.method == "POST") return RequestKind::kSubmission;
            return has("/unspent") || has("/history") ? RequestKind::kListing : RequestKind::kOther;
        case Service::kOrdinals:
            return has("/unspent") ? RequestKind::kListing : RequestKind::kOther;
        case Service::kIndexer:
            return has("/txids") ? RequestKind::kListing : RequestKind::kOther;
        case Service::kArc:
        case Service::kRelay:
            return request.method == "POST" ? RequestKind::kSubmission : RequestKind::kOther;
        case Service::kContent:
        case Service::kPaymail:
        case Service::kDownload:
            return RequestKind::kOther;
    }
    return RequestKind::kOther;
}

HttpReply AnswerFor(Service service, World& world, const HttpRequest& request, const Bend& bend) {
    switch (service) {
        case Service::kChain:
            return AnswerChain(world, request, bend);
        case Service::kOrdinals:
            return AnswerOrdinals(world, request, bend);
        case Service::kContent:
            return AnswerContent(world, request);
        case Service::kArc:
            return AnswerArc(world, request, bend);
        case Service::kRelay:
            return AnswerRelay(world, request, bend);
        case Service::kIndexer:
            return AnswerIndexer(world, request, bend);
        case Service::kPaymail:
            return AnswerPaymail(world, request);
        case Service::kDownload:
            return DownloadPage(world.build);
    }
    return NotFound();
}

HttpReply JsonReply(int status, const json& body) {
    HttpReply reply;
    reply.status = status;
    reply.body = body.dump(-1, ' ', false, json::error_handler_t::replace);
    return reply;
}

HttpReply TextReply(int status, std::string body) {
    HttpReply reply;
    reply.status = status;
    reply.body = std::move(body);
    reply.content_type = "text/plain";
    return reply;
}

HttpReply NotFound() { return TextReply(404, ""); }

json ParseBody(const HttpRequest& request) {
    return json::parse(request.body, nullptr, /*allow_exceptions=*/false);
}

std::string TextField(const json& object, const char* key) {
    if (!object.is_object()) return "";
    const auto found = object.find(key);
    return found != object.end() && found->is_string() ? found->get<std::string>() : std::string();
}

std::size_t CountParameter(const HttpRequest& request, const char* name, std::size_t fallback) {
    const auto found = request.query.find(name);
    if (found == request.query.end()) return fallback;
    std::size_t number = 0;
    const char* const end = found->second.data() + found->second.size();
    const auto [stop, error] = std::from_chars(found->second.data(), end, number);
    return error == std::errc() && stop == end ? number : fallback;
}

std::string_view PathBehind(const HttpRequest& request, std::string_view base) {
    std::string_view path = request.path;
    path.remove_prefix(std::min(path.size(), Split(base).path.size()));
    return StripFront(path, "/");
}

std::string_view TakeSegment(std::string_view& path) {
    const std::size_t slash = path.find('/');
    const std::string_view segment = path.substr(0, slash);
    path = slash == std::string_view::npos ? std::string_view() : path.substr(slash + 1);
    return segment;
}

std::string ShownId(const Digest& id, const Bend& bend) { return bend.flip_ids ? ToHex(id) : IdText(id); }

}  // namespace brickfall::sandbox
