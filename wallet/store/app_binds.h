// app_binds.h - which wallet this installation of the cabinet uses. BindAtStart runs on the main thread
// before any worker; the others run on any thread.
#pragma once

#include <string>
#include <string_view>

namespace brickfall {

// Fills the binding state: who this app is, and the wallet id that its bind file, or a store of one wallet,
// gives.
void BindAtStart(std::string_view instance, std::string_view app_name);

std::string SanitizeBindName(std::string_view text);
std::string BindFilePath();   // creates the folder
std::string BoundWalletId();  // reads the file afresh

// Takes the wallet for this run of the program and writes the bind file; false when that could not be
// written, so that a later start would not take it. No app and no id: does nothing, and that is true.
bool WriteBind(std::string_view wallet_id);
void ClearBind();  // deletes the bind file and forgets the wallet id

// The binding state; each read and write of it is guarded, so these give copies.
bool AppMode();
std::string AppName();
std::string AppInstance();
std::string WalletId();  // the active wallet id, empty when none
void SetWalletId(std::string_view wallet_id);
void ResetBindingForTest();  // as before BindAtStart

}  // namespace brickfall
