// From the words of a wallet to its keys, its addresses and what they sign.
#include <gtest/gtest.h>
#include <openssl/hmac.h>

#include <algorithm>
#include <string>
#include <thread>

#include "sandbox/server/bytes.h"
#include "sandbox/server/script_check.h"
#include "tests/support/wallet_fixture.h"
#include "wallet/keys/bip32.h"
#include "wallet/keys/key_derivation.h"
#include "wallet/keys/mnemonic.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/protocol/address.h"
#include "wallet/protocol/encodings.h"
#include "wallet/protocol/hashes.h"
#include "wallet/session/coin_refresh.h"
#include "wallet/session/encryption_key.h"
#include "wallet/session/identity_signature.h"
#include "wallet/session/wallet_session.h"

namespace brickfall {
namespace {

// A wallet in memory alone, without a file.
struct Keys : testing::Test, StoreFixture {
    Keys() { Use(kTestPhrase); }

    static void Use(std::string_view phrase, uint32_t last_receive = 0) {
        ClearWalletState();
        wallet_keys.mnemonic = phrase;
        wallet_keys.is_hd = true;
        wallet_keys.recv[1] = last_receive;
        EXPECT_TRUE(RefreshDerivedKeys());
    }

    bool Derive(const KeyPath& path) { return DeriveAtPath(path, private_hex, public_hex, address); }

    WalletLock lock{wallet_mutex};
    SecretString private_hex;
    std::string public_hex, address, signature, error;
};

TEST(ChildKeys, AreThoseOfThePublishedVectorAndOfNoParentOutsideTheGroup) {
    // BIP32, test vector 4, which keeps the leading zero byte of its first child.
    const ByteBuffer seed = HexDecode("3ddd5602285899a946114506157c7997e5444528f3003f6134712147db19b678");
    std::array<uint8_t, 64> output;
    HMAC(EVP_sha512(), "Bitcoin seed", 12, seed.data(), seed.size(), output.data(), nullptr);
    ExtendedKey node, child;
    std::copy_n(output.begin(), 32, node.key.begin());
    std::copy_n(output.begin() + 32, 32, node.chain_code.begin());
    for (const uint32_t index : {0u, 1u}) {
        ASSERT_TRUE(DeriveChildKey(node, index | kHardenedBit, child));
        node = child;
    }
    EXPECT_EQ(HexEncode(node.key), "3a2086edd7d9df86c3487a5905a1712a9aa664bce8cc268141e07549eaa8661d");
    EXPECT_EQ(HexEncode(node.chain_code), "a48ee6674c5264a237703fd383bccd9fad4d9378ac98ab05e6e7029b06360c0d");
    node.key.fill(0);
    EXPECT_FALSE(DeriveChildKey(node, 0, child)) << "zero has no public key";
    node.key.fill(0xff);
    EXPECT_FALSE(DeriveChildKey(node, 0, child) || DeriveChildKey(node, kHardenedBit, child));
}

TEST_F(Keys, APhraseIsToldFromWhatIsNone) {
    const std::string eleven =
        "abandon abandon abandon abandon abandon abandon abandon abandon abandon abandon abandon";
    // Published ones, the last in any case and with any blanks.
    for (const char* phrase :
         {kTestPhrase, "letter advice cage absurd amount doctor acoustic avoid letter advice cage above",
          "zoo zoo zoo zoo zoo zoo zoo zoo zoo zoo zoo wrong",
          "LEGAL Winner thank year wave sausage worth useful legal winner thank yelloW",
          " \tlegal  winner\tthank year wave sausage worth useful legal winner thank yellow  "}) {
        wallet_keys.mnemonic = phrase;
        EXPECT_TRUE(ValidateMnemonic()) << phrase;
    }
    const std::pair<std::string, const char*> none[] = {
        {eleven + " abandon", "checksum"},
        {"winner legal thank year wave sausage worth useful legal winner thank yellow", "order"},
        {eleven, "eleven words"},
        {eleven + " about about", "thirteen words"},
        {eleven + "\nabout", "a line break is part of a word"},
        {eleven + " about\n", "at the end too"},
        {eleven + " abou", "the beginning of a word"},
        {eleven + " aboutaboutabout", "longer than every word"},
        {eleven + std::string(" about\0", 7), "a zero byte"},
        {eleven + " \xc3\xa4\x62out", "a letter outside ASCII"},
        {eleven + " abandon " + eleven + " art", "twenty-four words, legal in BIP39 and refused here"},
    };
    for (const auto& [phrase, why] : none) {
        wallet_keys.mnemonic = phrase;
        EXPECT_FALSE(ValidateMnemonic()) << why;
    }
}

TEST_F(Keys, ThePublishedSeedLeadsToThePublishedKeys) {
    // BIP44's first account of another coin: known for this phrase from every public derivation tool.
    ASSERT_TRUE(Derive({44 | kHardenedBit, kHardenedBit, kHardenedBit, 0, 0}));
    EXPECT_EQ(HexEncode(wallet_keys.seed),
              "5eb00bbddcf069084889a8ab9155568165f5c453ccb85e70811aaed6f6da5fc1"
              "9a5ac40b389cd370d086206dec8aa6c43daea6690f20ad3d8d48b2d2ce9e38e4");
    EXPECT_EQ(private_hex, "e284129cc0922579a535bbf4d1a3b25773090d28c909bc0fed73b5e0222cc372");
    EXPECT_EQ(public_hex, "03aaeb52dd7494c361049de67cc680e83ebcbbbdbeb13637d92cd845f70308af5e");
    EXPECT_EQ(address, "1LqBGSKuX5yYUonjxT5qGfpUsXKYYWeabA");

    ASSERT_TRUE(DeriveEncryptionKey(public_hex, private_hex, error)) << error;
    EXPECT_EQ(private_hex, "a90296c62fa6d7cc8a8813d3d18e4c4ea82c9f9420bdad446b26de813c9c1b13");
    EXPECT_EQ(public_hex, "0343bdc4700d96c8084bff1ac971ecfd505e2c606e56b158e92b232a2af92b56ad");

    const KeyPath hardened = MakePath(1, kHardenedBit);
    ExtendedKey node = wallet_keys.master;
    ASSERT_TRUE(Descend(node, hardened) && Derive(hardened));
    EXPECT_EQ(private_hex, SecretString(HexEncode(node.key))) << "no child of the receive chain's public key";

    // The same words in another text are another wallet.
    ASSERT_TRUE(Derive(kIdentityPath));
    const std::string identity = address;
    for (const char* before : {"A", " a"}) {
        Use(before + std::string(kTestPhrase).substr(1));
        EXPECT_TRUE(ValidateMnemonic() && Derive(kIdentityPath));
        EXPECT_NE(address, identity);
    }
}

TEST_F(Keys, RefreshFillsTheAddressesAndClampsShow) {
    wallet_keys.recv = {0, 4, 0, 0, 0, 3};
    wallet_keys.show = 9;
    ASSERT_TRUE(RefreshDerivedKeys());
    EXPECT_EQ(wallet_keys.show, 4u);
    // Both by an independent derivation with big-number arithmetic.
    EXPECT_EQ(wallet_keys.address, "1DJkfQg5c5CCdwQe9jefqKABYWYAJiNacF");
    EXPECT_EQ(wallet_keys.priv, "7a1984882e97722e83b4d7f5b7ba70d94459a0570c549fcf5f0df092f6afc688");
    EXPECT_EQ(wallet_keys.identity_pub, "02ded4e1e697bc768d79dd3f5c95cd56f332fdcf483c2a36933ba6c81d29bcf8b4");
    EXPECT_EQ(wallet_keys.identity_address, "1Hg7Jm7G3DUetk4vxbAdjSf49qq3zbp8g6");
    KeyPath ordinals = kOrdinalsPath;
    ordinals[4] = 3;
    ASSERT_TRUE(Derive(ordinals));
    EXPECT_EQ(DeriveOrdAddress(), address);
    wallet_keys.recv[5] = 0;
    EXPECT_EQ(DeriveOrdAddress(), "1Hyoxs2Lp5dKW95bFyKh2JCtwsuS8PqML8");

    wallet_keys.mnemonic.clear();
    EXPECT_FALSE(DeriveEncryptionKey(public_hex, private_hex, error));
    EXPECT_EQ(error, "could not derive Pouch encryption key");
    public_hex = signature = "old";
    EXPECT_FALSE(SignIdentityMessage("text", public_hex, signature, error));
    EXPECT_EQ(error, "could not derive Pouch identity key");
    EXPECT_FALSE(RefreshDerivedKeys()) << "a cached master key does not stand in for the words";
    EXPECT_EQ(DeriveOrdAddress(), "");
    EXPECT_EQ(wallet_keys.pub + wallet_keys.address + wallet_keys.identity_pub + wallet_keys.identity_address,
              "");
    EXPECT_TRUE(wallet_keys.priv.empty() && private_hex.empty());
    EXPECT_EQ(public_hex + signature, "");
}

TEST_F(Keys, ALegacyWalletDerivesNothing) {
    ClearWalletState();
    EXPECT_FALSE(RefreshDerivedKeys());
    EXPECT_TRUE(OwnedAddresses().empty());
    private_hex = public_hex = address = "of another path";
    EXPECT_FALSE(Derive(kIdentityPath));
    EXPECT_EQ(std::string(private_hex) + public_hex + address, "");
    wallet_keys.address = "1BgGZ9tcN4rm9KBzDn7KprQz87SZ26SAMH";
    wallet_keys.priv = SecretString(64, '1');
    EXPECT_TRUE(RefreshDerivedKeys());
    EXPECT_EQ(wallet_keys.identity_pub + DeriveOrdAddress(), "");
    EXPECT_FALSE(DeriveEncryptionKey(public_hex, private_hex, error));
    EXPECT_EQ(error, "Pouch HD wallet not connected");
    error.clear();
    EXPECT_FALSE(SignIdentityMessage("text", public_hex, signature, error));
    EXPECT_EQ(error, "Pouch HD wallet not connected");

    ASSERT_EQ(OwnedAddresses().size(), 1u);
    EXPECT_EQ(OwnedAddresses()[0].path, KeyPath{});
    ASSERT_NE(FindOwnedAddress(wallet_keys.address), nullptr);
    wallet_keys.address = "no address";
    ASSERT_EQ(OwnedAddresses().size(), 1u);
    EXPECT_EQ(OwnedAddresses()[0].address, "no address");
    EXPECT_EQ(FindOwnedHash(Hash160{}), nullptr) << "a text that is no address owns no hash";
}

// The list has to be what the paths lead to.
void ExpectListed(const char* when) {
    SCOPED_TRACE(when);
    const std::vector<OwnedAddress>& list = OwnedAddresses();
    ASSERT_EQ(list.size(), wallet_keys.recv[1] + 2);
    SecretString private_hex;
    std::string public_hex, address;
    for (std::size_t i = 0; i < list.size(); ++i) {
        const KeyPath path = i + 1 < list.size() ? ReceivePath(static_cast<uint32_t>(i)) : kIdentityPath;
        EXPECT_EQ(list[i].path, path);
        ASSERT_TRUE(DeriveAtPath(path, private_hex, public_hex, address));
        EXPECT_EQ(list[i].address, address);
        EXPECT_EQ(FindOwnedAddress(address), &list[i]);
        EXPECT_EQ(FindOwnedHash(list[i].hash), &list[i]);
    }
}

TEST_F(Keys, TheListOfOwnedAddressesFollowsTheWallet) {
    Use(kTestPhrase, 3);
    ExpectListed("first");
    EXPECT_EQ(OwnedAddresses().data(), OwnedAddresses().data()) << "a second listing makes no new list";
    EXPECT_EQ(FindOwnedAddress("1BgGZ9tcN4rm9KBzDn7KprQz87SZ26SAMH"), nullptr);
    const std::string first = OwnedAddresses()[0].address, former = OwnedAddresses()[3].address;
    const auto grow_to = [](uint32_t last_receive) {
        wallet_keys.recv[1] = last_receive;
        ASSERT_TRUE(RefreshDerivedKeys());
    };
    grow_to(6);
    ExpectListed("grown");
    grow_to(1);
    ExpectListed("shrunk");
    EXPECT_EQ(FindOwnedAddress(former), nullptr);
    wallet_keys.mnemonic = "zoo zoo zoo zoo zoo zoo zoo zoo zoo zoo zoo wrong";
    wallet_keys.seed_cached = wallet_keys.master_cached = false;
    grow_to(1);
    ExpectListed("another wallet");
    EXPECT_NE(OwnedAddresses()[0].address, first);

    grow_to(2 * kListedUnderLock + 150);
    EXPECT_LE(OwnedAddresses().size(), 2 + kListedUnderLock + 1) << "too many under the lock";
    EXPECT_EQ(OwnedAddresses().back().path, kIdentityPath);
    ASSERT_TRUE(ListOwnedAddresses(lock));
    ExpectListed("grown by more than one call lists");
}

TEST_F(Keys, TheWalletIsFreeWhileManyAddressesAreDerived) {
    Use(kTestPhrase, kMaxReceiveIndex);
    std::thread other([] {
        const WalletLock other_lock(wallet_mutex);
        ClearWalletState();
    });
    EXPECT_FALSE(ListOwnedAddresses(lock)) << "the wallet went away meanwhile";
    EXPECT_TRUE(lock.owns_lock());
    lock.unlock();
    other.join();
    lock.lock();
    EXPECT_TRUE(OwnedAddresses().empty());
    EXPECT_FALSE(ListOwnedAddresses(lock)) << "there is none";
}

TEST_F(Keys, TheIdentitySignsWhatTheChainsFormSaysAtFullLength) {
    ByteBuffer compact(64);
    const auto sign = [&](const std::string& text) {
        const std::string former = signature;
        EXPECT_TRUE(SignIdentityMessage(text, public_hex, signature, error)) << error;
        EXPECT_NE(signature, former) << "a nonce is never used twice";
        compact = sandbox::FromBase64(signature).value_or(ByteBuffer());
    };
    // By the sandbox's own code.
    const auto verifies = [&](const std::string& text) {
        return sandbox::VerifySignedText(text, HexDecode(public_hex), compact);
    };
    for (const std::string& text : {std::string(), std::string("\0\xff\n", 3), std::string(70'000, 'a')}) {
        sign(text);
        EXPECT_EQ(public_hex, "02ded4e1e697bc768d79dd3f5c95cd56f332fdcf483c2a36933ba6c81d29bcf8b4");
        EXPECT_TRUE(verifies(text));
        EXPECT_FALSE(verifies(text + "x"));
    }
    // About one signature in 85 has an r or a low s whose first byte is zero.
    bool short_seen = false;
    for (int i = 0; i < 5000 && !short_seen && !HasFailure(); ++i) {
        sign("text");
        ASSERT_EQ(compact.size(), 64u);
        ASSERT_LT(compact[32], 0x80) << "s is in the lower half";
        short_seen = compact[0] == 0 || compact[32] == 0;
    }
    EXPECT_TRUE(short_seen && verifies("text"));
}

}  // namespace
}  // namespace brickfall
