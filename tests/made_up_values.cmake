# Values of the right form that lead nowhere, so that a production build can be tried.
set(API_BASE_URL "https://api.example.com")
set(PAYMAIL_DOMAIN "example.com")
set(PINNED_HOST_ADDRESS "192.0.2.1")
set(CHAIN_API_BASE_URL "https://chain.example.com/v1")
set(ORDINALS_API_BASE_URL "https://ordinals.example.com/api")
set(ORDINALS_CONTENT_BASE_URL "https://ordinals.example.com/content")
set(ARC_BROADCAST_URL "https://arc.example.com/v1/tx")
set(DOWNLOAD_PAGE_URL "https://example.com/brickfall")
set(ARCHITECT_HANDLE "architect")
foreach(name ARCADE_HOUSE ARCADE_POT ARCADE_WATCH REPORT_FEE REPORT_ORACLE)
  set(${name}_ADDRESS "1BgGZ9tcN4rm9KBzDn7KprQz87SZ26SAMH")  # of the private key 1: nobody's
endforeach()
