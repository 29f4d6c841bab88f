#include "wallet/session/identity_signature.h"

#include <gtest/gtest.h>

#include <string>

#include "sandbox/server/bytes.h"
#include "sandbox/server/script_check.h"
#include "tests/support/wallet_fixture.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/protocol/encodings.h"
#include "wallet/protocol/hashes.h"

namespace brickfall {
namespace {

constexpr char kIdentityPub[] = "02ded4e1e697bc768d79dd3f5c95cd56f332fdcf483c2a36933ba6c81d29bcf8b4";

struct IdentitySignature : testing::Test {
    bool Sign(std::string_view text) { return SignIdentityMessage(text, public_hex, signature, error); }

    ByteBuffer Compact() const {
        const auto bytes = sandbox::FromBase64(signature);
        EXPECT_TRUE(bytes && bytes->size() == 64) << signature;
        return bytes.value_or(ByteBuffer(64));
    }
    // By the sandbox's own code.
    bool Verifies(std::string_view text) const {
        return sandbox::VerifySignedText(text, HexDecode(public_hex), Compact());
    }

    const WalletFixture wallet;
    const WalletLock lock{wallet_mutex};
    std::string public_hex, signature, error;
};

TEST(SignedMessage, DigestIsThatOfThePublishedForm) {
    // 0x18, then "Bitcoin Signed Message:\n" in ASCII, then the length as the transaction format writes it.
    ByteBuffer wanted = HexDecode("18426974636f696e205369676e6564204d6573736167653a0afd2c01");
    wanted.insert(wanted.end(), 300, 'x');
    EXPECT_EQ(SignedMessageDigest(std::string(300, 'x')), Sha256Twice(wanted));
}

TEST_F(IdentitySignature, VerifiesAndKeepsItsLengthWhenANumberIsShort) {
    for (const std::string& text : {std::string(), std::string("\0\xff\n", 3), std::string(70'000, 'a')}) {
        ASSERT_TRUE(Sign(text)) << error;
        EXPECT_EQ(public_hex, kIdentityPub);
        EXPECT_TRUE(Verifies(text));
        EXPECT_FALSE(Verifies(text + "x"));
    }
    // About one signature in 85 has an r or a low s whose first byte is zero.
    bool short_seen = false;
    for (int i = 0; i < 5000 && !short_seen; ++i) {
        const std::string former = signature;
        ASSERT_TRUE(Sign("text"));
        ASSERT_NE(signature, former) << "a nonce is never used twice";
        const ByteBuffer compact = Compact();
        ASSERT_LT(compact[32], 0x80) << "s is in the lower half";
        short_seen = compact[0] == 0 || compact[32] == 0;
    }
    EXPECT_TRUE(short_seen);
    EXPECT_TRUE(Verifies("text"));
}

TEST_F(IdentitySignature, SaysWhyThereIsNone) {
    public_hex = signature = "old";
    wallet_keys.mnemonic.clear();
    EXPECT_FALSE(Sign("text"));
    EXPECT_EQ(error, "could not derive Pouch identity key");
    EXPECT_EQ(public_hex + signature, "");

    wallet_keys.is_hd = false;  // a legacy wallet, loaded
    EXPECT_FALSE(Sign("text"));
    EXPECT_EQ(error, "Pouch HD wallet not connected");
}

}  // namespace
}  // namespace brickfall
