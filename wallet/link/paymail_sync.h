// paymail_sync.h - keeps the wallet's name in step with the registry, and publishes it.
#pragma once

#include <string>
#include <string_view>

namespace brickfall {

std::string NormalizePaymailHandle(std::string_view text);

// Caller holds wallet_mutex.
void SyncNameAndAvatar();  // the hints of the wallet's file first
void EmitPaymailEvent();
void PaymailSync(bool announce);
void PublishWalletState();

std::string PublishedHandle();  // name@domain, or empty; takes wallet_mutex

}  // namespace brickfall
