// shell_labels.h - what the main window's lines say of wallet and pot, and the background work that renews
// it. Main thread only.
#pragma once

#include <cstdint>
#include <string>

namespace brickfall {

void RefreshWalletLabels();  // and starts a refresh of the balance
void RefreshPotLabel();
void RefreshPlayer();  // which row of the board is theirs, and what a record would cost them
void RefreshFee();     // the fee of a record; costs nothing while the run has not moved it
void RefreshTxid();    // of the record, beside the field; may be called at every frame
void StartPotRefresh();
void StartBoardLoad();  // or once more after the one that is under way

// Satoshis as whole coins with eight decimals, such as "-0.00005000".
std::string FormatBsv(int64_t satoshis);

}  // namespace brickfall
