// services.h - the remote services in the shapes of their answers: which one a request is for, and what it
// says. Called with the world's lock held.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "sandbox/server/faults.h"
#include "sandbox/server/https_server.h"
#include "sandbox/server/world.h"

namespace brickfall::sandbox {

inline constexpr std::string_view kControlHost = "control.sandbox.test";

// Every host name of the deployment's services, and the control endpoint's.
std::vector<std::string> ServedHosts();

std::optional<Service> ServiceOf(const HttpRequest& request);
RequestKind KindOf(Service service, const HttpRequest& request);

HttpReply AnswerFor(Service service, World& world, const HttpRequest& request, const Bend& bend);

// One source a service.
HttpReply AnswerChain(World& world, const HttpRequest& request, const Bend& bend);
HttpReply AnswerOrdinals(const World& world, const HttpRequest& request, const Bend& bend);
HttpReply AnswerContent(const World& world, const HttpRequest& request);
HttpReply AnswerArc(World& world, const HttpRequest& request, const Bend& bend);
HttpReply AnswerRelay(World& world, const HttpRequest& request, const Bend& bend);
HttpReply AnswerIndexer(const World& world, const HttpRequest& request, const Bend& bend);
HttpReply AnswerPaymail(World& world, const HttpRequest& request);

HttpReply JsonReply(int status, const nlohmann::json& body);
HttpReply TextReply(int status, std::string body);
HttpReply NotFound();                                  // 404 with an empty body
nlohmann::json ParseBody(const HttpRequest& request);  // of no type when it does not parse

// The text under a key; empty when there is none.
std::string TextField(const nlohmann::json& object, const char* key);
// A non-negative number of the query, or `fallback`.
std::size_t CountParameter(const HttpRequest& request, const char* name, std::size_t fallback);

// What stands behind the base's path in the request's path. `base` is a URL.
std::string_view PathBehind(const HttpRequest& request, std::string_view base);
// Splits off the beginning up to the next slash: "a/b/c" becomes "a" and "b/c".
std::string_view TakeSegment(std::string_view& path);

// The decoded form of a transaction, as the chain API and the indexer give it.
std::string DecodedTransaction(const Chain& chain, const ChainTx& entry);

std::string ShownId(const Digest& id, const Bend& bend);

}  // namespace brickfall::sandbox
