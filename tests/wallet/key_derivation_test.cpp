#include "wallet/keys/key_derivation.h"

#include <gtest/gtest.h>
#include <openssl/hmac.h>

#include <algorithm>
#include <string>
#include <thread>

#include "base/text.h"
#include "tests/support/wallet_fixture.h"
#include "wallet/keys/bip32.h"
#include "wallet/keys/mnemonic.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/protocol/address.h"
#include "wallet/protocol/encodings.h"
#include "wallet/protocol/hashes.h"
#include "wallet/session/coin_refresh.h"
#include "wallet/session/encryption_key.h"
#include "wallet/session/wallet_session.h"

namespace brickfall {
namespace {

// A wallet in memory alone, without a file.
struct KeyDerivation : testing::Test {
    KeyDerivation() { Use(kTestPhrase); }
    ~KeyDerivation() override { ClearWalletState(); }

    static void Use(std::string_view phrase) {
        ClearWalletState();
        wallet_keys.mnemonic = phrase;
        wallet_keys.is_hd = true;
    }

    // The path walked level by level from the master key of the state.
    static SecretString PrivateByLevels(const KeyPath& path) {
        ExtendedKey node = wallet_keys.master;
        for (const uint32_t index : path) {
            ExtendedKey child;
            if (!DeriveChildKey(node, index, child)) return {};
            node = child;
        }
        SecretString hex;
        AppendHex(hex, node.key);
        return hex;
    }

    const TempUserData data;  // a refresh tells the registry of names
    WalletLock lock{wallet_mutex};
    SecretString private_hex;
    std::string public_hex;
    std::string address;
};

ExtendedKey MasterOf(std::string_view seed_hex) {
    const ByteBuffer seed = HexDecode(seed_hex);
    std::array<uint8_t, 64> output;
    HMAC(EVP_sha512(), "Bitcoin seed", 12, seed.data(), seed.size(), output.data(), nullptr);
    ExtendedKey master;
    std::copy_n(output.begin(), 32, master.key.begin());
    std::copy_n(output.begin() + 32, 32, master.chain_code.begin());
    return master;
}

TEST(ChildKeys, AreThoseOfThePublishedVectorsAndOfNoParentOutsideTheGroup) {
    // BIP32, test vectors 1, 2 and 4; the last keeps the leading zero byte of its first child. The chain
    // codes in between show in the keys below them.
    const struct {
        std::string seed;
        std::vector<std::pair<uint32_t, std::string>> levels;
        std::string last_chain_code;
    } chains[] = {
        {"000102030405060708090a0b0c0d0e0f",
         {{kHardenedBit, "edb2e14f9ee77d26dd93b4ecede8d16ed408ce149b6cd80b0715a2d911a0afea"},
          {1, "3c6cb8d0f6a264c91ea8b5030fadaa8e538b020f0a387421a12de9319dc93368"},
          {2 | kHardenedBit, "cbce0d719ecf7431d88e6a89fa1483e02e35092af60c042b1df2ff59fa424dca"},
          {2, "0f479245fb19a38a1954c5c7c0ebab2f9bdfd96a17563ef28a6a4b1a2a764ef4"},
          {1'000'000'000, "471b76e389e528d6de6d816857e012c5455051cad6660850e58372a6c3e6e7c8"}},
         "c783e67b921d2beb8f6b389cc646d7263b4145701dadd2161548a8b078e65e9e"},
        {"fffcf9f6f3f0edeae7e4e1dedbd8d5d2cfccc9c6c3c0bdbab7b4b1aeaba8a5a29f9c999693908d8a8784817e7b7875726f"
         "6c696663605d5a5754514e4b484542",
         {{0, "abe74a98f6c7eabee0428f53798f0ab8aa1bd37873999041703c742f15ac7e1e"},
          {2'147'483'647 | kHardenedBit, "877c779ad9687164e9c2f4f0f4ff0340814392330693ce95a58fe18fd52e6e93"},
          {1, "704addf544a06e5ee4bea37098463c23613da32020d604506da8c0518e1da4b7"},
          {2'147'483'646 | kHardenedBit, "f1c7c871a54a804afe328b4c83a1c33b8e5ff48f5087273f04efa83b247d6a2d"},
          {2, "bb7d39bdb83ecf58f2fd82b6d918341cbef428661ef01ab97c28a4842125ac23"}},
         "9452b549be8cea3ecb7a84bec10dcfd94afe4d129ebfd3b3cb58eedf394ed271"},
        {"3ddd5602285899a946114506157c7997e5444528f3003f6134712147db19b678",
         {{kHardenedBit, "00d948e9261e41362a688b916f297121ba6bfb2274a3575ac0e456551dfd7f7e"},
          {1 | kHardenedBit, "3a2086edd7d9df86c3487a5905a1712a9aa664bce8cc268141e07549eaa8661d"}},
         "a48ee6674c5264a237703fd383bccd9fad4d9378ac98ab05e6e7029b06360c0d"},
    };
    ExtendedKey child;
    for (const auto& chain : chains) {
        ExtendedKey node = MasterOf(chain.seed);
        for (const auto& [index, key] : chain.levels) {
            ASSERT_TRUE(DeriveChildKey(node, index, child));
            EXPECT_EQ(HexEncode(child.key), key);
            node = child;
        }
        EXPECT_EQ(HexEncode(node.chain_code), chain.last_chain_code);
    }
    ExtendedKey parent;
    EXPECT_FALSE(DeriveChildKey(parent, 0, child)) << "zero has no public key";
    parent.key.fill(0xff);
    EXPECT_FALSE(DeriveChildKey(parent, 0, child));
    EXPECT_FALSE(DeriveChildKey(parent, kHardenedBit, child));
}

TEST_F(KeyDerivation, TellsAPhraseFromWhatIsNone) {
    const std::string eleven =
        "abandon abandon abandon abandon abandon abandon abandon abandon abandon abandon abandon";
    const struct {
        std::string phrase;
        bool valid;
        const char* why;
    } rows[] = {
        {kTestPhrase, true, "zero entropy, published"},
        {"legal winner thank year wave sausage worth useful legal winner thank yellow", true, "published"},
        {"letter advice cage absurd amount doctor acoustic avoid letter advice cage above", true,
         "published"},
        {"zoo zoo zoo zoo zoo zoo zoo zoo zoo zoo zoo wrong", true, "published, all ones"},
        {"LEGAL Winner thank year wave sausage worth useful legal winner thank yelloW", true, "any case"},
        {" \tlegal  winner\tthank year wave sausage worth useful legal winner thank yellow  ", true,
         "blanks"},
        {eleven + " abandon", false, "checksum"},
        {"winner legal thank year wave sausage worth useful legal winner thank yellow", false, "order"},
        {eleven, false, "eleven words"},
        {eleven + " about about", false, "thirteen words"},
        {"", false, "no words"},
        {"   ", false, "blanks alone"},
        {eleven + "\nabout", false, "a line break is part of a word"},
        {eleven + " about\n", false, "at the end too"},
        {eleven + " abou", false, "the beginning of a word"},
        {eleven + " abouts", false, "more than a word"},
        {eleven + " aboutaboutabout", false, "longer than every word"},
        {eleven + std::string(" about\0", 7), false, "a zero byte"},
        {eleven + " \xc3\xa4\x62out", false, "a letter outside ASCII"},
        {eleven + " abandon " + eleven + " art", false, "twenty-four words, legal in BIP39 and refused here"},
    };
    for (const auto& row : rows) {
        wallet_keys.mnemonic = row.phrase;
        EXPECT_EQ(ValidateMnemonic(), row.valid) << row.why;
    }
}

TEST_F(KeyDerivation, ReachesThePublishedSeedAndAddress) {
    // BIP44's first account of another coin: known for this phrase from every public derivation tool.
    const KeyPath path{44 | kHardenedBit, kHardenedBit, kHardenedBit, 0, 0};
    ASSERT_TRUE(DeriveAtPath(path, private_hex, public_hex, address));
    EXPECT_EQ(HexEncode(wallet_keys.seed),
              "5eb00bbddcf069084889a8ab9155568165f5c453ccb85e70811aaed6f6da5fc1"
              "9a5ac40b389cd370d086206dec8aa6c43daea6690f20ad3d8d48b2d2ce9e38e4");
    EXPECT_EQ(private_hex, "e284129cc0922579a535bbf4d1a3b25773090d28c909bc0fed73b5e0222cc372");
    EXPECT_EQ(public_hex, "03aaeb52dd7494c361049de67cc680e83ebcbbbdbeb13637d92cd845f70308af5e");
    EXPECT_EQ(address, "1LqBGSKuX5yYUonjxT5qGfpUsXKYYWeabA");
}

TEST_F(KeyDerivation, EveryPathIsItsFiveLevels) {
    const KeyPath paths[] = {ReceivePath(0),   ReceivePath(7), ReceivePath(0x7fffffff),   kIdentityPath,
                             kEncryptionPath,  kOrdinalsPath,  ReceivePath(kHardenedBit), {0, 1, 2, 3, 4},
                             {~0u, 0, 0, 0, 0}};
    std::string wanted;
    for (const KeyPath& path : paths) {
        ASSERT_TRUE(DeriveAtPath(path, private_hex, public_hex, address));
        EXPECT_EQ(private_hex, PrivateByLevels(path));
        ASSERT_TRUE(PublicKeyFromPrivate(private_hex, wanted));
        EXPECT_EQ(public_hex, wanted);
        EXPECT_EQ(address, AddressFromPublicKey(wanted));
    }
    std::string error = "old";
    ASSERT_TRUE(RefreshDerivedKeys());
    ASSERT_TRUE(DeriveEncryptionKey(public_hex, private_hex, error));
    EXPECT_EQ(private_hex, PrivateByLevels(kEncryptionPath));
    ASSERT_TRUE(PublicKeyFromPrivate(private_hex, wanted));
    EXPECT_EQ(public_hex, wanted);
    EXPECT_EQ(error, "");
}

TEST_F(KeyDerivation, AnotherTextIsAnotherWallet) {
    ASSERT_TRUE(DeriveAtPath(kIdentityPath, private_hex, public_hex, address));
    const std::string lower = address;
    std::string upper_phrase(kTestPhrase), wide_phrase(kTestPhrase);
    std::ranges::transform(upper_phrase, upper_phrase.begin(),
                           [](char c) { return c == ' ' ? c : static_cast<char>(c - 32); });
    wide_phrase.insert(7, " ");
    for (const std::string& phrase : {upper_phrase, wide_phrase}) {
        Use(phrase);
        ASSERT_TRUE(ValidateMnemonic());
        ASSERT_TRUE(DeriveAtPath(kIdentityPath, private_hex, public_hex, address));
        EXPECT_NE(address, lower);
    }
}

TEST_F(KeyDerivation, RefreshFillsTheAddressesAndClampsShow) {
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
    ASSERT_TRUE(DeriveAtPath(ordinals, private_hex, public_hex, address));
    EXPECT_EQ(DeriveOrdAddress(), address);
    wallet_keys.recv[5] = 0;
    EXPECT_EQ(DeriveOrdAddress(), "1Hyoxs2Lp5dKW95bFyKh2JCtwsuS8PqML8");

    wallet_keys.mnemonic.clear();
    std::string error;
    EXPECT_FALSE(DeriveEncryptionKey(public_hex, private_hex, error));
    EXPECT_EQ(error, "could not derive Pouch encryption key");
    EXPECT_FALSE(RefreshDerivedKeys()) << "a cached master key does not stand in for the words";
    EXPECT_EQ(DeriveOrdAddress(), "");
    for (const std::string& field :
         {wallet_keys.pub, wallet_keys.address, wallet_keys.identity_pub, wallet_keys.identity_address,
          std::string(wallet_keys.priv), public_hex, std::string(private_hex)}) {
        EXPECT_EQ(field, "");
    }
}

TEST_F(KeyDerivation, ALegacyWalletDerivesNothing) {
    ClearWalletState();
    EXPECT_FALSE(RefreshDerivedKeys());
    EXPECT_TRUE(OwnedAddresses().empty());
    wallet_keys.address = "1BgGZ9tcN4rm9KBzDn7KprQz87SZ26SAMH";
    wallet_keys.priv = SecretString(64, '1');
    EXPECT_TRUE(RefreshDerivedKeys());
    EXPECT_EQ(wallet_keys.identity_pub, "");
    EXPECT_EQ(DeriveOrdAddress(), "");
    std::string error;
    EXPECT_FALSE(DeriveEncryptionKey(public_hex, private_hex, error));
    EXPECT_EQ(error, "Pouch HD wallet not connected");

    ASSERT_EQ(OwnedAddresses().size(), 1u);
    EXPECT_EQ(OwnedAddresses()[0].path, KeyPath{});
    ASSERT_NE(FindOwnedAddress(wallet_keys.address), nullptr);
    EXPECT_EQ(FindOwnedHash(Hash160{}), nullptr);
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

TEST_F(KeyDerivation, TheListOfOwnedAddressesFollowsTheWallet) {
    wallet_keys.recv[1] = 3;
    ASSERT_TRUE(RefreshDerivedKeys());
    ExpectListed("first");
    EXPECT_EQ(OwnedAddresses().data(), OwnedAddresses().data()) << "a second listing makes no new list";
    EXPECT_EQ(FindOwnedAddress("1BgGZ9tcN4rm9KBzDn7KprQz87SZ26SAMH"), nullptr);
    const std::string former = OwnedAddresses()[3].address;

    wallet_keys.recv[1] = 6;
    ASSERT_TRUE(RefreshDerivedKeys());
    ExpectListed("grown");
    wallet_keys.recv[1] = 1;
    ASSERT_TRUE(RefreshDerivedKeys());
    ExpectListed("shrunk");
    EXPECT_EQ(FindOwnedAddress(former), nullptr);

    Use("zoo zoo zoo zoo zoo zoo zoo zoo zoo zoo zoo wrong");
    wallet_keys.recv[1] = 1;
    ASSERT_TRUE(RefreshDerivedKeys());
    ExpectListed("another wallet");

    wallet_keys.recv[1] = 2 * kListedUnderLock + 150;
    ASSERT_TRUE(RefreshDerivedKeys());
    EXPECT_LE(OwnedAddresses().size(), 2 + kListedUnderLock + 1) << "too many under the lock";
    EXPECT_EQ(OwnedAddresses().back().path, kIdentityPath);
    ASSERT_TRUE(ListOwnedAddresses(lock));
    ExpectListed("grown by more than one call lists");
}

TEST_F(KeyDerivation, TheWalletIsFreeWhileManyAddressesAreDerived) {
    wallet_keys.recv[1] = kMaxReceiveIndex;
    ASSERT_TRUE(RefreshDerivedKeys());
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
}

}  // namespace
}  // namespace brickfall
