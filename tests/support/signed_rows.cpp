#include "tests/support/signed_rows.h"

#include <algorithm>
#include <stdexcept>

#include "base/text.h"
#include "deployment/deployment.h"
#include "messages/row.h"
#include "sandbox/server/test_key.h"
#include "wallet/protocol/address.h"
#include "wallet/protocol/encodings.h"
#include "wallet/protocol/hashes.h"
#include "wallet/protocol/script.h"

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
    sandbox::TestKey key;
    std::ranges::copy(HexDecode(player.private_hex), key.number.begin());
    row["pubkey"] = player.public_hex;
    row["sig"] = sandbox::SignText(key, CanonicalMessage(row));
}

std::string TransactionBody(std::string_view txid, std::string_view payload) {
    const auto output = [](double value, int number, const ByteBuffer& script) {
        return json{{"value", value}, {"n", number}, {"scriptPubKey", {{"hex", HexEncode(script)}}}};
    };
    return json{{"txid", txid},
                {"vout",
                 {output(1e-8, 0, P2pkhScript({})), output(0, 1, DataCarrierScript(payload)),
                  output(0.0001, 2, P2pkhScript({}))}}}
        .dump();
}

sandbox::Fault ReplyTo(std::string_view path, std::string body, int status) {
    return {sandbox::FaultKind::kReply, status, std::move(body), "application/json", {}, 0, -1,
            std::string(path)};
}

}  // namespace brickfall
