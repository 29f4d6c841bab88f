// key_derivation.h - derives every key of the wallet from its words, and lists the addresses that it owns.
// All operations run with wallet_mutex held by the caller, but DeriveAddresses, which needs no lock.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "base/secret.h"
#include "wallet/keys/bip32.h"
#include "wallet/protocol/curve.h"
#include "wallet/protocol/hashes.h"

namespace brickfall {

// m/44'/236'/account'/0/index
constexpr KeyPath MakePath(uint32_t account, uint32_t index) {
    return {44 | kHardenedBit, 236 | kHardenedBit, account | kHardenedBit, 0, index};
}

inline constexpr KeyPath kReceivePath = MakePath(1, 0);  // the last index is the address's own
inline constexpr KeyPath kIdentityPath = MakePath(100, 0);
inline constexpr KeyPath kEncryptionPath = MakePath(101, 0);
inline constexpr KeyPath kOrdinalsPath = MakePath(5, 0);  // the last index is recv[5]

constexpr KeyPath ReceivePath(uint32_t index) { return MakePath(1, index); }

// One address that the wallet can spend from. Addresses are public: the list is kept until the wallet is
// cleared.
struct OwnedAddress {
    KeyPath path{};
    std::string address;
    Hash160 hash{};
};

// The key pair and address of a path. False with whatever was reached blanked.
bool DeriveAtPath(const KeyPath& path, SecretString& private_hex, std::string& public_hex,
                  std::string& address);

// Puts the wallet's current receive and identity keys in place. Tells nobody of them.
bool RefreshDerivedKeys();

std::string DeriveOrdAddress();  // empty for a legacy wallet or on any failure

// Every receive address from 0 to recv[1], then the identity address, without repeats; for a legacy wallet
// its one address (with an all-zero path). A call derives at most kListedUnderLock addresses, at a fraction
// of a millisecond each, and later calls none: of a wallet with more that are new the list is short until
// ListOwnedAddresses has run. The reference is good until the wallet is cleared, loaded or refreshed.
inline constexpr uint32_t kListedUnderLock = 128;
const std::vector<OwnedAddress>& OwnedAddresses();

// What every receive address follows from by BIP32's public derivation. There is no private key in it, so it
// serves without the wallet's lock; the chain code is wiped all the same.
struct ReceiveSource {
    CompressedPoint public_key{};
    std::array<uint8_t, 32> chain_code{};
};

// The receive addresses from one index to before another.
struct AddressSlice {
    ReceiveSource source;
    uint32_t from = 0;
    uint32_t end = 0;
};

// The next addresses that the list lacks; false when it is whole, or nothing can be derived. They are derived
// without the lock, and listed where the list still ends at their first.
bool NextAddressSlice(AddressSlice& slice);
std::vector<OwnedAddress> DeriveAddresses(const AddressSlice& slice);
void ListAddresses(const AddressSlice& slice, std::vector<OwnedAddress> addresses);

// Empties WalletKeys. Its secrets are wiped, whether they were valid or not.
void ResetWalletKeys();

// The entry of OwnedAddresses that owns the hash, or nullptr. Costs no derivation once the list is there.
const OwnedAddress* FindOwnedHash(const Hash160& hash);
const OwnedAddress* FindOwnedAddress(std::string_view address);

// Forgets the addresses and wipes the cached parent node. Called wherever the seed or the counters change.
void ClearDerivationCache();

}  // namespace brickfall
