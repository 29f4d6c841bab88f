// certificates.h - the certificate authority of one sandbox folder, and the certificate that the sandbox
// serves with. Called while the sandbox starts.
#pragma once

#include <openssl/ssl.h>

#include <memory>
#include <string>
#include <vector>

namespace brickfall::sandbox {

struct FreeTlsContext {
    void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
};
using TlsContext = std::unique_ptr<SSL_CTX, FreeTlsContext>;

// The PEM file of the folder's authority, for clients to trust.
std::string AuthorityFile(const std::string& folder);

// A server context with a fresh certificate for `hosts`, signed by the folder's authority, which is made here
// when the folder has none that is good. Its key stays in the folder (0600). Empty with `error` on failure.
TlsContext MakeServerContext(const std::string& folder, const std::vector<std::string>& hosts,
                             std::string& error);

}  // namespace brickfall::sandbox
