#include "wallet/keys/key_derivation.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <new>
#include <span>
#include <unordered_map>
#include <utility>

#include "base/text.h"
#include "wallet/keys/mnemonic.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/protocol/address.h"
#include "wallet/protocol/encodings.h"

namespace brickfall {
namespace {

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
ReceiveParent& receive_parent = MakeSecretObject<ReceiveParent>();
OwnedList& owned = *new OwnedList;

void WipeRoots() {
    OPENSSL_cleanse(wallet_keys.seed.data(), wallet_keys.seed.size());
    OPENSSL_cleanse(&wallet_keys.master, sizeof wallet_keys.master);
    wallet_keys.seed_cached = false;
    wallet_keys.master_cached = false;
}

// Fills seed and master from the words, once a load.
bool EnsureMaster() {
    if (wallet_keys.master_cached) return true;
    ClearDerivationCache();
    if (wallet_keys.mnemonic.empty()) return false;
    if (!(wallet_keys.seed_cached || ComputeSeed()) || !MasterKey(wallet_keys.seed, wallet_keys.master)) {
        WipeRoots();
        return false;
    }
    wallet_keys.master_cached = true;
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

// The addresses from `index` to before `end`. There is an address at every index but for a chance of one in
// 2^127: what fails has had no memory. Passed over, its coins would be missing until the program ends.
std::vector<OwnedAddress> DeriveReceiveAddresses(const ReceiveSource& source, uint32_t index, uint32_t end) {
    std::vector<OwnedAddress> addresses;
    const EcPointPtr parent = DecodePoint(source.public_key);
    if (!parent) throw std::bad_alloc();
    CompressedPoint key;
    for (; index < end; ++index) {
        if (!DerivePublicChild(parent.get(), source.public_key, source.chain_code, index, key)) {
            throw std::bad_alloc();
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
    try {
        for (OwnedAddress& address : more) ListAddress(std::move(address));
        if (Hash160 hash; DecodeAddress(owned.other_address, hash)) {
            ListAddress({kIdentityPath, owned.other_address, hash});
        }
    } catch (const std::bad_alloc&) {
        ForgetOwnedList();  // a hash may have been placed whose address is not listed
        throw;
    }
    owned.next_index = end;
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
    if (wallet_keys.address.empty()) return;
    OwnedAddress only{KeyPath{}, wallet_keys.address, {}};
    // The file's text is taken as it stands; one that is no address is listed and owns no hash.
    const bool owns_hash = DecodeAddress(only.address, only.hash);
    const Hash160 hash = only.hash;
    owned.addresses.push_back(std::move(only));
    if (owns_hash) owned.places.emplace(hash, 0);
    owned.other_address = wallet_keys.address;  // last: without memory the list is made anew
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
    return DeriveIntoWallet(kIdentityPath, unused, keys.identity_pub, keys.identity_address);
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

const std::vector<OwnedAddress>& OwnedAddresses() {
    if (wallet_keys.is_hd) {
        ListHdAddresses();
    } else {
        ListLegacyAddress();
    }
    return owned.addresses;
}

bool NextAddressSlice(AddressSlice& slice) {
    constexpr uint32_t kSlice = 256;  // after which a change of the wallet is noticed
    if (!wallet_keys.is_hd || !OpenHdList(slice.source) || owned.next_index >= ReceiveEnd()) return false;
    slice.from = owned.next_index;
    slice.end = std::min(ReceiveEnd(), slice.from + kSlice);
    return true;
}

std::vector<OwnedAddress> DeriveAddresses(const AddressSlice& slice) {
    return DeriveReceiveAddresses(slice.source, slice.from, slice.end);
}

void ListAddresses(const AddressSlice& slice, std::vector<OwnedAddress> addresses) {
    // Another thread may have listed them meanwhile, or the counter gone back.
    if (ListsThisWallet() && owned.next_index == slice.from && slice.end <= ReceiveEnd()) {
        AppendReceiveAddresses(std::move(addresses), slice.end);
    }
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

void ResetWalletKeys() {
    WipeString(wallet_keys.priv);
    WipeString(wallet_keys.mnemonic);
    OPENSSL_cleanse(wallet_keys.seed.data(), wallet_keys.seed.size());
    OPENSSL_cleanse(&wallet_keys.master, sizeof wallet_keys.master);
    wallet_keys = WalletKeys{};
    ClearDerivationCache();
    ShowWallet();
}

}  // namespace brickfall
