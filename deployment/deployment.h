// deployment.h - where this build of the program finds its services, and whom it pays.
// Each value is defined in exactly one linked source: sandbox.cpp, or the one made from production.cmake.in.
#pragma once

#include <string>

namespace brickfall {

extern const char* const kApiBaseUrl;              // scheme and host of the family's API, no slash at the end
extern const char* const kPaymailDomain;           // the family's paymail domain
extern const char* const kPinnedHostAddress;       // dotted IPv4 address that the family's host is pinned to
extern const char* const kChainApiBaseUrl;         // base of the WhatsOnChain main-chain API
extern const char* const kOrdinalsApiBaseUrl;      // base of the GorillaPool ordinals API
extern const char* const kOrdinalsContentBaseUrl;  // base of its content service
extern const char* const kArcBroadcastUrl;         // the ARC transaction endpoint
extern const char* const kDownloadPageUrl;         // the game's public download page
extern const char* const kArchitectHandle;         // the paymail handle that receives reports

// Base58Check P2PKH main-chain addresses.
extern const char* const kArcadeHouseAddress;
extern const char* const kArcadePotAddress;
extern const char* const kArcadeWatchAddress;
extern const char* const kReportFeeAddress;
extern const char* const kReportOracleAddress;

// Where the far end of every connection is moved to, with URL, host name and TLS checks unchanged.
// Both are empty in production: the real host is reached, and the system's authorities are trusted.
struct ConnectRoute {
    std::string connect_to;   // in libcurl's CURLOPT_CONNECT_TO form, such as "::127.0.0.1:8443"
    std::string ca_file;      // PEM file of the only trusted authority
    int timeout_divisor = 1;  // time-outs are divided by it, so that tests of slow services need not wait in
                              // full; 0: none, however busy the machine is
};

ConnectRoute CurrentConnectRoute();

}  // namespace brickfall
