// Run by the configure step: exit 0 when the argument is a P2PKH main-chain address with a good checksum.
#include "wallet/protocol/address.h"
#include "wallet/protocol/hashes.h"

int main(int count, char** arguments) {
    brickfall::Hash160 hash{};
    return count == 2 && brickfall::DecodeAddress(arguments[1], hash) ? 0 : 1;
}
