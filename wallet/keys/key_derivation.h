// key_derivation.h - checks the twelve words and derives every key of the wallet from them (BIP39, BIP32).
// All operations run with wallet_mutex held by the caller, but DeriveEncryptionKey, which takes it itself.
#pragma once

#include <array>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "base/secret.h"
#include "wallet/protocol/encodings.h"

namespace brickfall {

inline constexpr uint32_t kHardenedBit = 0x80000000;

using KeyPath = std::array<uint32_t, 5>;

// m/44'/236'/account'/0/index
constexpr KeyPath MakePath(uint32_t account, uint32_t index) {
    return {44 | kHardenedBit, 236 | kHardenedBit, account | kHardenedBit, 0, index};
}

inline constexpr KeyPath kReceivePath = MakePath(1, 0);  // the last index is the address's own
inline constexpr KeyPath kIdentityPath = MakePath(100, 0);
inline constexpr KeyPath kEncryptionPath = MakePath(101, 0);
inline constexpr KeyPath kOrdinalsPath = MakePath(5, 0);  // the last index is recv[5]

constexpr KeyPath ReceivePath(uint32_t index) { return MakePath(1, index); }

// 32 key bytes, then 32 chain-code bytes.
struct ExtendedKey {
    std::array<uint8_t, 32> key{};
    std::array<uint8_t, 32> chain_code{};
};

// One address that the wallet can spend from. Addresses are public: the list is kept until the wallet is
// cleared.
struct OwnedAddress {
    KeyPath path{};
    std::string address;
    Hash160 hash{};
};

bool ValidateMnemonic();  // of WalletKeys.mnemonic: twelve English words with a good checksum

// The key pair and address of a path. False with whatever was reached blanked.
bool DeriveAtPath(const KeyPath& path, SecretString& private_hex, std::string& public_hex,
                  std::string& address);

// BIP32 private derivation of one level. False when the step fails; there is no move to the next index.
bool DeriveChildKey(const ExtendedKey& parent, uint32_t index, ExtendedKey& child);

// Puts the wallet's current receive, identity and ordinals addresses in place.
bool RefreshDerivedKeys();

std::string DeriveOrdAddress();  // empty for a legacy wallet or on any failure

// Takes wallet_mutex and loads the wallet. On false `error` says why.
bool DeriveEncryptionKey(std::string& public_hex, SecretString& private_hex, std::string& error);

// Every receive address from 0 to recv[1], then the identity address, without repeats; for a legacy wallet
// its one address (with an all-zero path). A call derives at most kListedUnderLock addresses, at a fraction
// of a millisecond each, and later calls none: of a wallet with more that are new the list is short until
// ListOwnedAddresses has run. The reference is good until the wallet is cleared, loaded or refreshed.
inline constexpr uint32_t kListedUnderLock = 128;
const std::vector<OwnedAddress>& OwnedAddresses();

// Makes the list whole, however long it is. The caller's hold on wallet_mutex, which must be the only one of
// its thread, is released while addresses are derived. False when no wallet, or another one, stands there
// afterwards.
bool ListOwnedAddresses(std::unique_lock<std::recursive_mutex>& lock);

// The entry of OwnedAddresses that owns the hash, or nullptr. Costs no derivation once the list is there.
const OwnedAddress* FindOwnedHash(const Hash160& hash);
const OwnedAddress* FindOwnedAddress(std::string_view address);

// Forgets the addresses and wipes the cached parent node. Called wherever the seed or the counters change.
void ClearDerivationCache();

}  // namespace brickfall
