#include "wallet/keys/key_derivation.h"

#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <algorithm>
#include <cstring>
#include <span>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "base/text.h"
#include "wallet/keys/bip39_words.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/protocol/curve.h"
#include "wallet/store/paymail_registry.h"

namespace brickfall {
namespace {

constexpr std::size_t kWordCount = 12;
constexpr std::size_t kMaxWordLength = 8;  // of the list
constexpr std::size_t kEntropyBytes = 16;
constexpr std::string_view kSeedSalt = "mnemonic";  // the wallet has no pass phrase
constexpr int kSeedRounds = 2048;
constexpr std::string_view kMasterKey = "Bitcoin seed";

using HmacOutput = std::array<uint8_t, 64>;

// The node above all receive addresses, m/44'/236'/1'/0, with its public key.
struct ReceiveParent {
    ExtendedKey node;
    CompressedPoint public_key{};
    bool cached = false;
};

struct HashOfHash {
    std::size_t operator()(const Hash160& hash) const {
        std::size_t value = 0;
        std::memcpy(&value, hash.data(), sizeof value);
        return value;
    }
};

// The receive addresses in index order, and behind them the identity address.
struct OwnedList {
    std::vector<OwnedAddress> addresses;
    std::unordered_map<Hash160, std::size_t, HashOfHash> places;
    bool is_hd = false;
    uint32_t next_index = 0;    // receive addresses below it are listed
    std::string other_address;  // the identity address, or the one of a legacy wallet
};

// Both guarded by wallet_mutex.
ReceiveParent& receive_parent = *new ReceiveParent;
OwnedList& owned = *new OwnedList;

bool HmacSha512(std::span<const uint8_t> key, std::span<const uint8_t> data, HmacOutput& output) {
    unsigned int length = 0;
    const auto* done = HMAC(EVP_sha512(), key.data(), static_cast<int>(key.size()), data.data(), data.size(),
                            output.data(), &length);
    return done != nullptr && length == output.size();
}

// The place of a word of either case in the list, or -1.
int WordValue(std::string_view word) {
    if (word.size() > kMaxWordLength) return -1;
    std::array<char, kMaxWordLength> folded{};
    const WipeAtExit wipe_word(folded);
    std::transform(word.begin(), word.end(), folded.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    const std::string_view wanted(folded.data(), word.size());
    const auto found = std::lower_bound(kBip39Words.begin(), kBip39Words.end(), wanted);
    if (found == kBip39Words.end() || *found != wanted) return -1;
    return static_cast<int>(found - kBip39Words.begin());
}

bool ComputeSeed() {
    const SecretString& words = wallet_keys.mnemonic;
    const std::span<const uint8_t> salt = AsBytes(kSeedSalt);
    wallet_keys.seed_cached =
        PKCS5_PBKDF2_HMAC(words.data(), static_cast<int>(words.size()), salt.data(),
                          static_cast<int>(salt.size()), kSeedRounds, EVP_sha512(),
                          static_cast<int>(wallet_keys.seed.size()), wallet_keys.seed.data()) == 1;
    return wallet_keys.seed_cached;
}

void WipeRoots() {
    OPENSSL_cleanse(wallet_keys.seed.data(), wallet_keys.seed.size());
    OPENSSL_cleanse(&wallet_keys.master, sizeof wallet_keys.master);
    wallet_keys.seed_cached = false;
    wallet_keys.master_cached = false;
}

void Split(const HmacOutput& output, ExtendedKey& node) {
    std::copy_n(output.begin(), 32, node.key.begin());
    std::copy_n(output.begin() + 32, 32, node.chain_code.begin());
}

// Fills seed and master from the words, once a load.
bool EnsureMaster() {
    if (wallet_keys.master_cached) return true;
    ClearDerivationCache();
    if (wallet_keys.mnemonic.empty()) return false;
    HmacOutput output;
    const WipeAtExit wipe_output(output);
    const bool done = (wallet_keys.seed_cached || ComputeSeed()) &&
                      HmacSha512(AsBytes(kMasterKey), wallet_keys.seed, output);
    if (!done) {
        WipeRoots();
        return false;
    }
    Split(output, wallet_keys.master);
    wallet_keys.master_cached = true;
    return true;
}

// (left + parent) modulo the order. False when the left half is out of range or the sum is zero.
bool AddKeys(std::span<const uint8_t, 32> left, const std::array<uint8_t, 32>& parent,
             std::array<uint8_t, 32>& sum) {
    const BIGNUM* order = EC_GROUP_get0_order(Secp256k1());
    const BignumPtr tweak(BN_bin2bn(left.data(), 32, nullptr));
    const BignumPtr key(BN_bin2bn(parent.data(), 32, nullptr));
    const BignumPtr child(BN_new());
    if (!tweak || !key || !child) return false;
    if (BN_cmp(tweak.get(), order) >= 0 || BN_cmp(key.get(), order) >= 0) return false;
    // Constant time for numbers below the modulus.
    if (BN_mod_add_quick(child.get(), tweak.get(), key.get(), order) != 1) return false;
    return !BN_is_zero(child.get()) && BN_bn2binpad(child.get(), sum.data(), 32) == 32;
}

using ChildDataBytes = std::array<uint8_t, kCompressedKeyBytes + 4>;

// `first` is the compressed public key of the parent, or for a hardened index a zero byte and its key.
ChildDataBytes ChildData(const CompressedPoint& first, uint32_t index) {
    ChildDataBytes data;
    std::copy(first.begin(), first.end(), data.begin());
    for (std::size_t i = 0; i < 4; ++i) {
        data[kCompressedKeyBytes + i] = static_cast<uint8_t>(index >> (24 - 8 * i));
    }
    return data;
}

// `first` as for ChildData.
bool DeriveChild(const ExtendedKey& parent, const CompressedPoint& first, uint32_t index,
                 ExtendedKey& child) {
    ChildDataBytes data = ChildData(first, index);
    const WipeAtExit wipe_data(data);
    HmacOutput output;
    const WipeAtExit wipe_output(output);
    if (!HmacSha512(parent.chain_code, data, output)) return false;
    if (!AddKeys(std::span(output).first<32>(), parent.key, child.key)) return false;
    std::copy_n(output.begin() + 32, 32, child.chain_code.begin());
    return true;
}

// Replaces the node by the one that the indices lead to.
bool Descend(ExtendedKey& node, std::span<const uint32_t> indices) {
    ExtendedKey child;
    const WipeAtExit wipe_child(child);
    for (const uint32_t index : indices) {
        if (!DeriveChildKey(node, index, child)) return false;
        node = child;
    }
    return true;
}

bool EnsureReceiveParent() {
    if (!EnsureMaster()) return false;
    if (receive_parent.cached) return true;
    receive_parent.node = wallet_keys.master;
    receive_parent.cached = Descend(receive_parent.node, std::span(kReceivePath).first(4)) &&
                            CompressedPublicKey(receive_parent.node.key, receive_parent.public_key);
    if (!receive_parent.cached) OPENSSL_cleanse(&receive_parent, sizeof receive_parent);
    return receive_parent.cached;
}

bool IsOnReceiveChain(const KeyPath& path) {
    return std::equal(path.begin(), path.begin() + 4, kReceivePath.begin()) && path[4] < kHardenedBit;
}

bool DeriveNode(const KeyPath& path, ExtendedKey& node) {
    if (!EnsureMaster()) return false;
    if (IsOnReceiveChain(path)) {
        return EnsureReceiveParent() &&
               DeriveChild(receive_parent.node, receive_parent.public_key, path[4], node);
    }
    node = wallet_keys.master;
    return Descend(node, path);
}

bool DeriveNodeWithKey(const KeyPath& path, ExtendedKey& node, CompressedPoint& public_key) {
    return DeriveNode(path, node) && CompressedPublicKey(node.key, public_key);
}

void ForgetOwnedList() { owned = OwnedList{}; }

void ListAddress(OwnedAddress address) {
    if (!owned.places.try_emplace(address.hash, owned.addresses.size()).second) return;
    owned.addresses.push_back(std::move(address));
}

// What every receive address follows from by BIP32's public derivation. There is no private key in it, so it
// serves without the wallet's lock; the chain code is wiped all the same.
struct ReceiveSource {
    CompressedPoint public_key{};
    std::array<uint8_t, 32> chain_code{};
};

// The addresses from `index` to before `end`; one whose derivation fails is passed over.
std::vector<OwnedAddress> DeriveReceiveAddresses(const ReceiveSource& source, uint32_t index, uint32_t end) {
    std::vector<OwnedAddress> addresses;
    const EcPointPtr parent = DecodePoint(source.public_key);
    if (!parent) return addresses;
    HmacOutput output;
    const WipeAtExit wipe_output(output);
    CompressedPoint key;
    for (; index < end; ++index) {
        if (!HmacSha512(source.chain_code, ChildData(source.public_key, index), output) ||
            !AddMultipleOfGenerator(parent.get(), std::span(output).first<32>(), key)) {
            continue;
        }
        const Hash160 hash = Hash160Of(key);
        addresses.push_back({ReceivePath(index), Base58CheckEncode(hash), hash});
    }
    return addresses;
}

uint32_t ReceiveEnd() { return wallet_keys.recv[1] + 1; }

bool ListsThisWallet() { return owned.is_hd && owned.other_address == wallet_keys.identity_address; }

// Puts more receive addresses, up to before index `end`, behind the listed ones.
void AppendReceiveAddresses(std::vector<OwnedAddress> more, uint32_t end) {
    if (!owned.addresses.empty() && owned.addresses.back().path == kIdentityPath) {
        owned.places.erase(owned.addresses.back().hash);
        owned.addresses.pop_back();
    }
    for (OwnedAddress& address : more) ListAddress(std::move(address));
    owned.next_index = end;
    if (Hash160 hash; DecodeAddress(owned.other_address, hash)) {
        ListAddress({kIdentityPath, owned.other_address, hash});
    }
}

// False when nothing can be derived. Else the list is one of this wallet, and goes on at its next index; a
// counter that has grown costs its new addresses only.
bool OpenHdList(ReceiveSource& source) {
    if (!EnsureReceiveParent()) return false;
    source = {receive_parent.public_key, receive_parent.node.chain_code};
    if (!ListsThisWallet() || owned.next_index > ReceiveEnd()) ForgetOwnedList();
    owned.is_hd = true;
    owned.other_address = wallet_keys.identity_address;
    return true;
}

void ListHdAddresses() {
    if (ListsThisWallet() && owned.next_index == ReceiveEnd()) return;
    ReceiveSource source;
    const WipeAtExit wipe_source(source);
    if (!OpenHdList(source)) return;
    const uint32_t end = std::min(ReceiveEnd(), owned.next_index + kListedUnderLock);
    AppendReceiveAddresses(DeriveReceiveAddresses(source, owned.next_index, end), end);
}

void ListLegacyAddress() {
    if (!owned.is_hd && owned.other_address == wallet_keys.address) return;
    ForgetOwnedList();
    owned.other_address = wallet_keys.address;
    if (owned.other_address.empty()) return;
    OwnedAddress only{KeyPath{}, owned.other_address, {}};
    // The file's text is taken as it stands; one that is no address is listed and owns no hash.
    if (DecodeAddress(only.address, only.hash)) owned.places.emplace(only.hash, 0);
    owned.addresses.push_back(std::move(only));
}

bool DeriveIntoWallet(const KeyPath& path, SecretString& private_hex, std::string& public_hex,
                      std::string& address) {
    if (!wallet_keys.mnemonic.empty()) return DeriveAtPath(path, private_hex, public_hex, address);
    WipeString(private_hex);
    public_hex.clear();
    address.clear();
    return false;
}

}  // namespace

bool ValidateMnemonic() {
    // 132 bits: the entropy, then the checksum in the top half of the last byte.
    std::array<uint8_t, kEntropyBytes + 1> packed{};
    const WipeAtExit wipe_packed(packed);
    std::string_view rest = wallet_keys.mnemonic;
    std::size_t count = 0;
    while (!(rest = StripFront(rest, " \t")).empty()) {
        const std::string_view word = rest.substr(0, rest.find_first_of(" \t"));
        rest.remove_prefix(word.size());
        const int value = WordValue(word);
        if (value < 0 || count == kWordCount) return false;
        for (std::size_t bit = 0; bit < 11; ++bit) {
            const std::size_t at = count * 11 + bit;
            const int set = value >> (10 - bit) & 1;
            packed[at / 8] = static_cast<uint8_t>(packed[at / 8] | set << (7 - at % 8));
        }
        ++count;
    }
    if (count != kWordCount) return false;
    const uint8_t checksum = Sha256Once(std::span(packed).first<kEntropyBytes>())[0];
    return checksum >> 4 == packed[kEntropyBytes] >> 4;
}

bool DeriveAtPath(const KeyPath& path, SecretString& private_hex, std::string& public_hex,
                  std::string& address) {
    WipeString(private_hex);
    public_hex.clear();
    address.clear();
    ExtendedKey node;
    const WipeAtExit wipe_node(node);
    CompressedPoint public_key;
    if (!DeriveNodeWithKey(path, node, public_key)) return false;
    AppendHex(private_hex, node.key);
    public_hex = HexEncode(public_key);
    address = Base58CheckEncode(Hash160Of(public_key));
    return true;
}

bool DeriveChildKey(const ExtendedKey& parent, uint32_t index, ExtendedKey& child) {
    CompressedPoint first{};
    const WipeAtExit wipe_first(first);
    if (index >= kHardenedBit) {
        std::copy(parent.key.begin(), parent.key.end(), first.begin() + 1);
    } else if (!CompressedPublicKey(parent.key, first)) {
        return false;
    }
    return DeriveChild(parent, first, index, child);
}

bool RefreshDerivedKeys() {
    WalletKeys& keys = wallet_keys;
    if (!keys.is_hd) return !keys.address.empty();
    keys.show = std::min(keys.show, keys.recv[1]);
    if (keys.mnemonic.empty()) {
        keys.identity_pub.clear();
        keys.identity_address.clear();
    }
    if (!DeriveIntoWallet(ReceivePath(keys.show), keys.priv, keys.pub, keys.address)) return false;
    SecretString unused;
    if (!DeriveIntoWallet(kIdentityPath, unused, keys.identity_pub, keys.identity_address)) return false;
    if (const std::string ord_address = DeriveOrdAddress(); !ord_address.empty()) SetOrdAddress(ord_address);
    return true;
}

std::string DeriveOrdAddress() {
    if (!wallet_keys.is_hd) return {};
    KeyPath path = kOrdinalsPath;
    path.back() = wallet_keys.recv[5];
    SecretString private_hex;
    std::string public_hex;
    std::string address;
    DeriveIntoWallet(path, private_hex, public_hex, address);
    return address;
}

bool DeriveEncryptionKey(std::string& public_hex, SecretString& private_hex, std::string& error) {
    public_hex.clear();
    WipeString(private_hex);
    error.clear();
    const WalletLock lock(wallet_mutex);
    if (!LoadWallet() || !wallet_keys.is_hd) {
        error = "Pouch HD wallet not connected";
        return false;
    }
    std::string address;
    if (!DeriveIntoWallet(kEncryptionPath, private_hex, public_hex, address)) {
        error = "could not derive Pouch encryption key";
        return false;
    }
    return true;
}

const std::vector<OwnedAddress>& OwnedAddresses() {
    if (wallet_keys.is_hd) {
        ListHdAddresses();
    } else {
        ListLegacyAddress();
    }
    return owned.addresses;
}

bool ListOwnedAddresses(WalletLock& lock) {
    constexpr uint32_t kSlice = 256;  // after which a change of the wallet is noticed
    if (!LoadWallet()) return false;
    OwnedAddresses();
    const std::string identity = wallet_keys.identity_address;
    ReceiveSource source;
    const WipeAtExit wipe_source(source);
    while (wallet_keys.is_hd && OpenHdList(source) && owned.next_index < ReceiveEnd()) {
        const uint32_t from = owned.next_index;
        const uint32_t end = std::min(ReceiveEnd(), from + kSlice);
        lock.unlock();
        std::vector<OwnedAddress> slice = DeriveReceiveAddresses(source, from, end);
        lock.lock();
        if (!LoadWallet() || wallet_keys.identity_address != identity) return false;
        // Another thread may have listed them meanwhile, or the counter gone back.
        if (ListsThisWallet() && owned.next_index == from && end <= ReceiveEnd()) {
            AppendReceiveAddresses(std::move(slice), end);
        }
    }
    return true;
}

const OwnedAddress* FindOwnedHash(const Hash160& hash) {
    const std::vector<OwnedAddress>& addresses = OwnedAddresses();
    const auto found = owned.places.find(hash);
    return found == owned.places.end() ? nullptr : &addresses[found->second];
}

const OwnedAddress* FindOwnedAddress(std::string_view address) {
    Hash160 hash;
    return DecodeAddress(address, hash) ? FindOwnedHash(hash) : nullptr;
}

void ClearDerivationCache() {
    ForgetOwnedList();
    OPENSSL_cleanse(&receive_parent, sizeof receive_parent);
}

}  // namespace brickfall
