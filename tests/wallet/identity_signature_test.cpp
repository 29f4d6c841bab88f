#include "wallet/identity_signature.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <string>

#include "tests/support/temp_folder.h"
#include "wallet/curve.h"
#include "wallet/ov_pouch_wallet.h"

namespace brickfall {
namespace {

constexpr char kIdentityPub[] = "02ded4e1e697bc768d79dd3f5c95cd56f332fdcf483c2a36933ba6c81d29bcf8b4";

struct IdentitySignature : testing::Test {
    IdentitySignature() {
        ClearWalletState();
        wallet_keys.is_hd = true;
        wallet_keys.mnemonic =
            "abandon abandon abandon abandon abandon abandon abandon abandon abandon abandon abandon about";
        RefreshDerivedKeys();
    }
    ~IdentitySignature() override { ClearWalletState(); }

    bool Sign(std::string_view text) { return SignIdentityMessage(text, public_hex, signature, error); }

    const TempUserData data;
    const WalletLock lock{wallet_mutex};
    std::string public_hex, signature, error;
};

ByteBuffer Base64Bytes(const std::string& text) {
    ByteBuffer bytes(text.size() / 4 * 3);
    EVP_DecodeBlock(bytes.data(), reinterpret_cast<const uint8_t*>(text.data()),
                    static_cast<int>(text.size()));
    bytes.resize(64);  // without what the padding decodes to
    return bytes;
}

bool Verifies(const std::string& public_hex, const ByteBuffer& compact, const Hash256& digest) {
    const EC_GROUP* group = Secp256k1();
    const ByteBuffer point_bytes = HexDecode(public_hex);
    const EcPointPtr point(EC_POINT_new(group));
    const EcKeyPtr key(EC_KEY_new());
    const EcdsaSigPtr signature(ECDSA_SIG_new());
    EC_POINT_oct2point(group, point.get(), point_bytes.data(), point_bytes.size(), nullptr);
    EC_KEY_set_group(key.get(), group);
    EC_KEY_set_public_key(key.get(), point.get());
    ECDSA_SIG_set0(signature.get(), BN_bin2bn(compact.data(), 32, nullptr),
                   BN_bin2bn(compact.data() + 32, 32, nullptr));
    return ECDSA_do_verify(digest.data(), 32, signature.get(), key.get()) == 1;
}

TEST(SignedMessage, DigestCountsItsTextInACompactSize) {
    struct Row {
        std::size_t length;
        const char* length_hex;
    };
    const Row rows[] = {{0, "00"},       {1, "01"},          {252, "fc"},
                        {253, "fdfd00"}, {65'535, "fdffff"}, {65'536, "fe00000100"}};
    for (const Row& row : rows) {
        // 0x18, then "Bitcoin Signed Message:\n" in ASCII.
        ByteBuffer wanted =
            HexDecode("18426974636f696e205369676e6564204d6573736167653a0a" + std::string(row.length_hex));
        wanted.insert(wanted.end(), row.length, 'x');
        EXPECT_EQ(SignedMessageDigest(std::string(row.length, 'x')), Sha256Twice(wanted)) << row.length;
    }
}

TEST_F(IdentitySignature, VerifiesAgainstThePublishedForm) {
    const std::string texts[] = {"", "row", std::string("\0\xff\n", 3), std::string(70'000, 'a')};
    for (const std::string& text : texts) {
        ASSERT_TRUE(Sign(text)) << error;
        EXPECT_EQ(public_hex, kIdentityPub);
        EXPECT_EQ(signature.size(), 88u);
        EXPECT_TRUE(Verifies(public_hex, Base64Bytes(signature), SignedMessageDigest(text)));
        EXPECT_FALSE(Verifies(public_hex, Base64Bytes(signature), SignedMessageDigest(text + "x")));
    }
    const std::string first = signature;
    ASSERT_TRUE(Sign(texts[3]));
    EXPECT_NE(signature, first) << "a nonce is never used twice";
}

TEST_F(IdentitySignature, KeepsItsLengthWhenANumberIsShort) {
    // About one signature in 85 has an r or a low s whose first byte is zero.
    bool short_seen = false;
    for (int i = 0; i < 5000 && !short_seen; ++i) {
        ASSERT_TRUE(Sign("text"));
        ASSERT_EQ(signature.size(), 88u);
        const ByteBuffer compact = Base64Bytes(signature);
        ASSERT_LT(compact[32], 0x80) << "s is in the lower half";
        short_seen = compact[0] == 0 || compact[32] == 0;
    }
    EXPECT_TRUE(short_seen);
    EXPECT_TRUE(Verifies(public_hex, Base64Bytes(signature), SignedMessageDigest("text")));
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
    ClearWalletState();
    EXPECT_FALSE(Sign("text"));
    EXPECT_EQ(error, "Pouch HD wallet not connected");
}

}  // namespace
}  // namespace brickfall
