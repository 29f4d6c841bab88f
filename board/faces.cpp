#include "board/faces.h"

#include <new>
#include <nlohmann/json.hpp>
#include <set>
#include <utility>

#include "deployment/deployment.h"
#include "messages/row.h"
#include "net/http_client.h"
#include "net/url_text.h"

namespace brickfall {
namespace {

bool IsHttps(std::string_view text) { return text.starts_with("https://"); }

}  // namespace

std::string FaceKey(const ScoreRow& row) {
    std::string key = row.handle.empty() ? row.paymail : row.handle;
    const std::size_t at = key.find('@');
    if (at != std::string::npos) key.resize(at);
    return key.empty() ? row.pay_addr : key;
}

std::string ResolveAvatarUrl(std::string_view key) {
    if (key.empty() || key.starts_with('1')) return {};  // a chain address has no profile
    const auto url = UrlWithName(std::string(kApiBaseUrl) + "/api/bsvalias/public-profile/", key,
                                 std::string("@") + kPaymailDomain);
    nlohmann::json profile;
    return url && FetchJson(*url, profile, kShortAnswer) ? AvatarOfProfile(profile) : std::string();
}

std::string AvatarOfProfile(const nlohmann::json& profile) {
    std::string avatar = JsonString(profile, "avatar");
    if (IsHttps(avatar)) return avatar;
    std::string inscription = JsonString(profile, "ord");
    if (inscription.empty()) inscription = JsonString(profile, "origin");
    if (inscription.empty() || IsHttps(inscription)) return inscription;
    return UrlWithName(std::string(kOrdinalsContentBaseUrl) + "/content/", inscription).value_or("");
}

// A picture that does not fit into memory is none, and the next one is tried.
std::optional<Image> LoadFace(const std::string& key, const FaceDecoder& decode) try {
    const std::string url = ResolveAvatarUrl(key);
    std::string file;
    if (url.empty() || !FetchText(url, file, kFaceMaxBytes) || file.size() < kFaceMinBytes)
        return std::nullopt;
    return decode(std::move(file), kFaceMaxSide);
} catch (const std::bad_alloc&) {
    return std::nullopt;
}

void LoadFaces(const std::vector<ScoreRow>& rows, const FaceDecoder& decode, Faces& faces) {
    faces.clear();
    std::set<std::string> asked;
    for (const ScoreRow& row : rows) {
        const std::string key = FaceKey(row);
        if (key.empty() || !asked.insert(key).second) continue;
        if (std::optional<Image> face = LoadFace(key, decode)) faces.emplace(key, *std::move(face));
    }
}

}  // namespace brickfall
