#include "wallet/chain/listing.h"

#include <string_view>

#include "net/answer_limits.h"
#include "net/http_client.h"

namespace brickfall {

bool ReadListing(const std::optional<std::string>& url, const ListShape& shape, int timeout_seconds,
                 const std::function<bool(const nlohmann::json& element)>& take) {
    std::string error;
    return url && HttpGetAndRead(*url, error, timeout_seconds, kListAnswer.bytes, [&](std::string_view body) {
               return ForEachElement(body, shape, kListAnswer, take);
           });
}

}  // namespace brickfall
