#include "tests/support/signed_rows.h"

#include <array>
#include <stdexcept>

#include "base/text.h"
#include "deployment/deployment.h"
#include "messages/row.h"
#include "wallet/protocol/address.h"
#include "wallet/protocol/curve.h"
#include "wallet/protocol/ecdsa.h"
#include "wallet/protocol/encodings.h"
#include "wallet/protocol/hashes.h"
#include "wallet/protocol/script.h"
#include "wallet/session/identity_signature.h"

namespace brickfall {

using nlohmann::json;

TestPlayer MakePlayer(std::string_view alias, int generation) {
    TestPlayer player;
    player.alias = alias;
    const std::string seed = "test player " + player.alias + std::to_string(generation);
    player.private_hex = HexEncode(Sha256Once(AsBytes(seed)));
    if (!PublicKeyFromPrivate(player.private_hex, player.public_hex)) throw std::runtime_error("no key");
    player.pay_addr = AddressFromPublicKey(player.public_hex);
    return player;
}

sandbox::PublishedIdentity IdentityOf(const TestPlayer& player, std::string_view avatar) {
    sandbox::PublishedIdentity identity;
    identity.alias = player.alias;
    identity.pubkey = player.public_hex;
    identity.address = player.pay_addr;
    identity.avatar = avatar;
    return identity;
}

json SignedScore(const TestPlayer& player, int64_t score, int64_t ts, int64_t week) {
    json row = {{"type", "arcade_score"},
                {"protocol", "Cairn-Wire"},
                {"location", "arcade"},
                {"handle", player.alias},
                {"actor", player.alias},
                {"paymail", player.alias + "@" + kPaymailDomain},
                {"game", "brickfall"},
                {"score", score},
                {"week", week},
                {"ts", ts},
                {"entry", std::string(64, 'e')},
                {"pay_addr", player.pay_addr},
                {"tape", "01032000200000000000"},
                {"tape_hash", std::string(64, '7')}};
    SignRow(player, row);
    return row;
}

void SignRow(const TestPlayer& player, json& row) {
    ByteBuffer der;
    if (!SignDigest(player.private_hex, SignedMessageDigest(CanonicalMessage(row)), der)) {
        throw std::runtime_error("no signature");
    }
    const uint8_t* at = der.data();
    const EcdsaSigPtr signature(d2i_ECDSA_SIG(nullptr, &at, static_cast<long>(der.size())));
    std::array<uint8_t, 64> compact{};
    BN_bn2binpad(ECDSA_SIG_get0_r(signature.get()), compact.data(), 32);
    BN_bn2binpad(ECDSA_SIG_get0_s(signature.get()), compact.data() + 32, 32);
    row["pubkey"] = player.public_hex;
    row["sig"] = Base64Encode(compact);
}

std::string TransactionBody(std::string_view txid, std::string_view payload) {
    const auto output = [](double value, int number, const ByteBuffer& script) {
        return json{{"value", value}, {"n", number}, {"scriptPubKey", {{"hex", HexEncode(script)}}}};
    };
    const json transaction = {
        {"txid", txid},
        {"version", 1},
        {"locktime", 0},
        {"vin", {{{"txid", std::string(64, 'c')}, {"vout", 0}, {"sequence", 4294967295}}}},
        {"vout",
         {output(1e-8, 0, P2pkhScript({})), output(0, 1, DataCarrierScript(payload)),
          output(0.0001, 2, P2pkhScript({}))}}};
    return transaction.dump();
}

std::string IdentityPath(const TestPlayer& player) { return "/api/bsvalias/id/" + Lower(player.alias) + "@"; }

sandbox::Fault ReplyTo(std::string_view path, std::string body, int status) {
    sandbox::Fault fault;
    fault.status = status;
    fault.body = std::move(body);
    fault.content_type = "application/json";
    fault.path_contains = path;
    return fault;
}

}  // namespace brickfall
