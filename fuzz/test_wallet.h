// test_wallet.h - the loaded wallet of a fuzz target.
#pragma once

#include "fuzz/support.h"
#include "wallet/session/wallet_session.h"
#include "wallet/store/app_binds.h"

namespace brickfall {

// Of the words that stand for no entropy (BIP39). No other thread runs, and the clock stands still.
inline bool OpenTestWallet(const FuzzStore& store) {
    StopClock();
    std::string words;
    for (int i = 0; i < 11; ++i) words += "abandon ";
    Require(ReplaceFile(store.Path() + "/Orvane/wallets/w1/wallet.json",
                        R"({"mnemonic":")" + words + "about\"}"));
    BindAtStart("/fuzz", "Fuzz");
    SetWalletId("w1");
    return LoadWallet();
}

}  // namespace brickfall
