// The reading that blanks the secrets of a wallet file agrees with the plain one: on what is JSON, on the
// secrets, and on everything that is none.
#include "fuzz/support.h"
#include "wallet/json/json_numbers.h"
#include "wallet/json/secret_json.h"
#include "wallet/json/store_json.h"

using namespace brickfall;
using nlohmann::json;

namespace {

constexpr size_t kMaxBytes = 4096;  // bounds the depth of the comparison

bool IsSecretKey(const std::string& key) { return key == "mnemonic" || key == "priv"; }

void RequireSame(const json& plain, const json& blanked) {
    Require(plain.type() == blanked.type());
    Require(plain.is_string() || plain.size() == blanked.size());
    if (plain.is_array()) {
        for (size_t i = 0; i < plain.size(); ++i) RequireSame(plain[i], blanked[i]);
    } else if (plain.is_object()) {
        for (const auto& [key, value] : plain.items()) {
            Require(blanked.contains(key));
            if (IsSecretKey(key)) {
                Require(value.type() == blanked[key].type());
            } else {
                RequireSame(value, blanked[key]);
            }
        }
    } else {
        Require(plain == blanked);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > kMaxBytes) return 0;
    const CostBound cost(18'000, size, 350);
    SecretString text(reinterpret_cast<const char*>(data), size);
    const json plain = ParseForeignJson(text, kStoreLimits);
    SecretMember secrets[] = {{"mnemonic", {}}, {"priv", {}}};
    const json blanked = ParseWithSecrets(text, secrets);
    Require(plain.is_discarded() == blanked.is_discarded());
    if (plain.is_discarded()) return 0;
    RequireSame(plain, blanked);
    for (const SecretMember& secret : secrets) {
        const json* value = FindJsonKey(plain, std::string(secret.key).c_str());
        const bool is_text = value != nullptr && value->is_string();
        Require(secret.value == (is_text ? SecretString(value->get<std::string>()) : SecretString()));
    }
    return 0;
}
