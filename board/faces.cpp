#include "board/faces.h"

#include <nlohmann/json.hpp>
#include <utility>

#include "deployment/deployment.h"
#include "messages/row.h"
#include "net/http_client.h"

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
    std::string url = std::string(kApiBaseUrl) + "/api/bsvalias/public-profile/";
    url.append(key).append("@").append(kPaymailDomain);
    nlohmann::json profile;
    return FetchJson(url, profile) ? AvatarOfProfile(profile) : std::string();
}

std::string AvatarOfProfile(const nlohmann::json& profile) {
    std::string avatar = JsonString(profile, "avatar");
    if (IsHttps(avatar)) return avatar;
    std::string inscription = JsonString(profile, "ord");
    if (inscription.empty()) inscription = JsonString(profile, "origin");
    if (inscription.empty() || IsHttps(inscription)) return inscription;
    return std::string(kOrdinalsContentBaseUrl) + "/content/" + inscription;
}

void LoadFaces(const std::vector<ScoreRow>& rows, FaceBytes& face_bytes) {
    face_bytes.clear();
    for (const ScoreRow& row : rows) {
        const std::string key = FaceKey(row);
        if (key.empty() || face_bytes.contains(key)) continue;
        const std::string url = ResolveAvatarUrl(key);
        std::string bytes;
        if (!url.empty() && FetchText(url, bytes) && bytes.size() >= kFaceMinBytes &&
            bytes.size() <= kFaceMaxBytes) {
            face_bytes.emplace(key, std::move(bytes));
        }
    }
}

}  // namespace brickfall
