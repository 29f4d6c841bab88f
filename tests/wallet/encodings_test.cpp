#include "wallet/protocol/encodings.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <algorithm>

#include "wallet/protocol/address.h"
#include "wallet/protocol/ecdsa.h"
#include "wallet/protocol/hashes.h"
#include "wallet/protocol/script.h"

namespace brickfall {
namespace {

Hash160 HashOf(std::string_view hex) {
    Hash160 hash{};
    EXPECT_TRUE(HexDecodeSecret(hex, hash));
    return hash;
}

// Base58Check for any version byte, by big-number arithmetic on decimal-free digit lists.
std::string AddressOfVersion(uint8_t version, std::span<const uint8_t> payload) {
    ByteBuffer bytes{version};
    bytes.insert(bytes.end(), payload.begin(), payload.end());
    const Hash256 checksum = Sha256Twice(bytes);
    bytes.insert(bytes.end(), checksum.begin(), checksum.begin() + 4);
    std::vector<uint32_t> digits;  // base 58, low first
    for (const uint8_t byte : bytes) {
        uint32_t carry = byte;
        for (uint32_t& digit : digits) {
            carry += digit * 256;
            digit = carry % 58;
            carry /= 58;
        }
        for (; carry > 0; carry /= 58) digits.push_back(carry % 58);
    }
    std::string text;
    for (std::size_t i = 0; i < bytes.size() && bytes[i] == 0; ++i) text += '1';
    for (auto digit = digits.rbegin(); digit != digits.rend(); ++digit) text += kBase58Alphabet[*digit];
    return text;
}

TEST(Encodings, HexDropsTheWholeTextForAnyFault) {
    EXPECT_EQ(HexDecode("AbCd"), (ByteBuffer{171, 205}));
    EXPECT_EQ(HexEncode(ByteBuffer{0, 9, 171, 255}), "0009abff");
    for (const char* bad : {"", "abc", "abcg", "0x12", " ab ", "ab\xc3\xa9", "12 4"}) {
        EXPECT_TRUE(HexDecode(bad).empty()) << bad;
    }
    std::array<uint8_t, 2> out{7, 7};
    EXPECT_FALSE(HexDecodeSecret("ababab", out));
    EXPECT_FALSE(HexDecodeSecret("abzz", out));
    EXPECT_EQ(out[0], 0) << "half a secret stays behind";
    EXPECT_TRUE(HexDecodeSecret("FF01", out));
    EXPECT_EQ(out, (std::array<uint8_t, 2>{255, 1}));
}

TEST(Encodings, AddressesAreThePublishedOnes) {
    const std::pair<const char*, const char*> rows[] = {
        {"010966776006953d5567439e5e39f86a0d273bee", "16UwLL9Risc3QfPqBUvKofHmBQ7wMtjvM"},
        {"65a16059864a2fdbc7c99a4723a8395bc6f188eb", "1AGNa15ZQXAZUgFiqJ2i7Z2DPU2J6hW62i"},
        {"751e76e8199196d454941c45d1b3a323f1433bd6", "1BgGZ9tcN4rm9KBzDn7KprQz87SZ26SAMH"},
        {"0000000000000000000000000000000000000000", "1111111111111111111114oLvT2"},
    };
    for (const auto& [hex, address] : rows) {
        EXPECT_EQ(Base58CheckEncode(HashOf(hex)), address);
        Hash160 hash{};
        ASSERT_TRUE(DecodeAddress(address, hash)) << address;
        EXPECT_EQ(HexEncode(hash), hex);
    }
}

TEST(Encodings, DecodeAddressRefusesWhatIsNoMainChainAddress) {
    const Hash160 ones = HashOf("0101010101010101010101010101010101010101");
    const std::pair<std::string, const char*> rows[] = {
        {"", "nothing"},
        {"3CMNFxN1oHBc4R1EpboAL5yzHGgE611Xou", "a script address, from the published list"},
        {"mo9ncXisMeAoXwqcV5EWuyncbmCcQs4rVs", "a test-network address, from the published list"},
        {AddressOfVersion(1, ones), "the least version that is not 0"},
        {AddressOfVersion(0, std::span(ones).first(19)), "19 bytes with a good checksum"},
        {AddressOfVersion(0, ByteBuffer(21, 1)), "21 bytes with a good checksum"},
        {AddressOfVersion(0, ByteBuffer(17, 0)), "a good checksum in 25 characters or fewer"},
        {"1" + AddressOfVersion(0, ones), "one leading zero byte too many"},
        {AddressOfVersion(0, ones).substr(1), "one leading zero byte too few"},
        {"1BgGZ9tcN4rm9KBzDn7KprQz87SZ26SAM0", "a character outside the alphabet"},
        {"1BgGZ9tcN4rm9KBzDn7KprQz87SZ26SAMH ", "a blank behind"},
        {std::string(36, '1'), "too long"},
        {std::string(35, 'z'), "more than 25 bytes"},
        {std::string(26, '\xff'), "bytes above ASCII"},
        {std::string(30, '\0'), "zero bytes"},
    };
    Hash160 hash{};
    for (const auto& [text, why] : rows) EXPECT_FALSE(DecodeAddress(text, hash)) << why;
}

TEST(Encodings, OneWrongCharacterIsNoticedAtEveryPlace) {
    const std::string good = "1BgGZ9tcN4rm9KBzDn7KprQz87SZ26SAMH";
    Hash160 hash{};
    for (std::size_t place = 0; place < good.size(); ++place) {
        for (const char wrong : std::string_view(kBase58Alphabet)) {
            std::string text = good;
            text[place] = wrong;
            ASSERT_EQ(DecodeAddress(text, hash), text == good) << text;
        }
    }
}

TEST(Encodings, EveryHashComesBackFromItsAddress) {
    EXPECT_TRUE(rc::check("round trip", [](Hash160 hash, uint8_t zeros) {
        std::fill_n(hash.begin(), zeros % 21, uint8_t{0});
        const std::string address = Base58CheckEncode(hash);
        RC_ASSERT(address == AddressOfVersion(0, hash));
        Hash160 back{};
        RC_ASSERT(DecodeAddress(address, back));
        RC_ASSERT(back == hash);
    }));
}

TEST(Encodings, KeysOfThePrivateKey) {
    // The generator (SEC 2), its negative, and the worked example of the address format.
    const struct {
        std::string private_hex, public_hex, address;
    } good[] = {
        {"0000000000000000000000000000000000000000000000000000000000000001",
         "0279be667ef9dcbbac55a06295ce870b07029bfcdb2dce28d959f2815b16f81798",
         "1BgGZ9tcN4rm9KBzDn7KprQz87SZ26SAMH"},
        {"fffffffffffffffffffffffffffffffebaaedce6af48a03bbfd25e8cd0364140",
         "0379be667ef9dcbbac55a06295ce870b07029bfcdb2dce28d959f2815b16f81798",
         "1GrLCmVQXoyJXaPJQdqssNqwxvha1eUo2E"},
        {"18E14A7B6A307F426A94F8114701E7C8E774E7F9A47E2C2035DB29A206321725",
         "0250863ad64a87ae8a2fe83c1af1a8403cb53f53e486d8511dad8a04887e5b2352",
         "1PMycacnJaSqwwJqjawXBErnLsZ7RkXUAs"},
    };
    for (const auto& row : good) {
        std::string public_hex;
        ASSERT_TRUE(PublicKeyFromPrivate(row.private_hex, public_hex));
        EXPECT_EQ(public_hex, row.public_hex);
        EXPECT_EQ(AddressFromPublicKey(public_hex), row.address);
    }
    // The last three are no scalars of the group.
    for (const std::string& text :
         {std::string(), std::string(62, '1'), std::string(66, '1'), std::string(63, '1') + "g",
          std::string(64, '0'), std::string(64, 'f'),
          std::string("fffffffffffffffffffffffffffffffebaaedce6af48a03bbfd25e8cd0364141")}) {
        std::string public_hex = "old";
        ByteBuffer der{1};
        EXPECT_FALSE(PublicKeyFromPrivate(text, public_hex) || SignDigest(text, Hash256{}, der)) << text;
        EXPECT_TRUE(public_hex.empty() && der.empty()) << text;
    }
    EXPECT_EQ(AddressFromPublicKey("04" + std::string(128, '1')), "") << "only the compressed form has one";
    EXPECT_EQ(AddressFromPublicKey(""), "");
}

TEST(Encodings, IntegersOfTheTransactionFormat) {
    const std::pair<uint64_t, const char*> rows[] = {
        {0, "00"},
        {252, "fc"},
        {253, "fdfd00"},
        {65'535, "fdffff"},
        {65'536, "fe00000100"},
        {0xFFFFFFFF, "feffffffff"},
        {0x100000000, "ff0000000001000000"},
        {UINT64_MAX, "ffffffffffffffffff"},
    };
    for (const auto& [value, hex] : rows) {
        ByteBuffer out;
        AppendVarInt(out, value);
        EXPECT_EQ(HexEncode(out), hex);
    }
    ByteBuffer out{0xee};
    AppendU32Le(out, 0x01020304);
    AppendU64Le(out, 0x05060708090a0b0c);
    EXPECT_EQ(HexEncode(out), "ee040302010c0b0a0908070605");
}

TEST(Encodings, ScriptsPushTheirDataInOnePieceHoweverLong) {
    const std::pair<std::size_t, std::string> rows[] = {
        {0, "00"},     {1, "01"},       {75, "4b"},         {76, "4c4c"},
        {255, "4cff"}, {256, "4d0001"}, {65'535, "4dffff"}, {65'536, "4e00000100"}};
    for (const auto& [length, prefix] : rows) {
        ByteBuffer wanted = HexDecode("006a" + prefix);
        wanted.insert(wanted.end(), length, 'p');
        EXPECT_EQ(DataCarrierScript(std::string(length, 'p')), wanted) << length;
    }
    EXPECT_EQ(HexEncode(P2pkhScript(HashOf("751e76e8199196d454941c45d1b3a323f1433bd6"))),
              "76a914751e76e8199196d454941c45d1b3a323f1433bd688ac");
}

TEST(Encodings, Base64OfRfc4648) {
    const std::pair<const char*, const char*> rows[] = {
        {"", ""},        {"f", "Zg=="},        {"fo", "Zm8="},
        {"foo", "Zm9v"}, {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="}};
    for (const auto& [text, encoded] : rows) EXPECT_EQ(Base64Encode(AsBytes(text)), encoded);
    EXPECT_EQ(Base64Encode(ByteBuffer{0xfb, 0xef, 0xff}), "++//");
}

}  // namespace
}  // namespace brickfall
