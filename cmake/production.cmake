# Reads the operator's values, checks each, and makes the library `deployment` from them. What is wrong is told of all
# values at once.
if(NOT BRICKFALL_PRODUCTION_VALUES OR NOT EXISTS "${BRICKFALL_PRODUCTION_VALUES}")
  message(FATAL_ERROR "BRICKFALL_PRODUCTION_VALUES: no such file \"${BRICKFALL_PRODUCTION_VALUES}\"; "
                      "fill in a copy of deployment/production.cmake.in")
endif()
include("${BRICKFALL_PRODUCTION_VALUES}")

set(value_faults "")

function(require_value name pattern what)
  if(NOT DEFINED ${name} OR "${${name}}" STREQUAL "")
    string(APPEND value_faults "\n  ${name} is missing: ${what}")
  elseif(NOT "${${name}}" MATCHES "${pattern}")
    string(APPEND value_faults "\n  ${name} is malformed (\"${${name}}\"): ${what}")
  endif()
  set(value_faults "${value_faults}" PARENT_SCOPE)
endfunction()

set(host_pattern "[A-Za-z0-9]([A-Za-z0-9.-]*[A-Za-z0-9])?(:[0-9]+)?")
require_value(API_BASE_URL "^https://${host_pattern}$" "an https address of scheme and host alone")
foreach(name CHAIN_API_BASE_URL ORDINALS_API_BASE_URL ORDINALS_CONTENT_BASE_URL ARC_BROADCAST_URL DOWNLOAD_PAGE_URL)
  require_value(${name} "^https://${host_pattern}(/[A-Za-z0-9._~/-]*[A-Za-z0-9._~-])?$"
                "an https address without a slash at its end")
endforeach()
require_value(PAYMAIL_DOMAIN "^[a-z0-9]([a-z0-9.-]*[a-z0-9])?\\.[a-z]+$" "a domain in lower case")
set(octet "(25[0-5]|2[0-4][0-9]|1[0-9][0-9]|[1-9]?[0-9])")
require_value(PINNED_HOST_ADDRESS "^${octet}\\.${octet}\\.${octet}\\.${octet}$" "an IPv4 address in dotted form")
require_value(ARCHITECT_HANDLE "^[a-z0-9_.-]+$" "a paymail name without its domain")

try_compile(checker_built "${CMAKE_BINARY_DIR}/check_address"
  SOURCES "${CMAKE_SOURCE_DIR}/cmake/check_address.cpp" "${CMAKE_SOURCE_DIR}/wallet/protocol/address.cpp"
          "${CMAKE_SOURCE_DIR}/wallet/protocol/encodings.cpp" "${CMAKE_SOURCE_DIR}/wallet/protocol/hashes.cpp"
          "${CMAKE_SOURCE_DIR}/wallet/protocol/curve.cpp" "${CMAKE_SOURCE_DIR}/base/text.cpp"
  CMAKE_FLAGS "-DINCLUDE_DIRECTORIES=${CMAKE_SOURCE_DIR}"
  COMPILE_DEFINITIONS -DOPENSSL_SUPPRESS_DEPRECATED
  LINK_LIBRARIES OpenSSL::Crypto
  CXX_STANDARD 20 CXX_STANDARD_REQUIRED ON
  COPY_FILE "${CMAKE_BINARY_DIR}/check_address_program"
  OUTPUT_VARIABLE checker_output)
if(NOT checker_built)
  message(FATAL_ERROR "the address checker does not build:\n${checker_output}")
endif()
foreach(name ARCADE_HOUSE_ADDRESS ARCADE_POT_ADDRESS ARCADE_WATCH_ADDRESS REPORT_FEE_ADDRESS REPORT_ORACLE_ADDRESS)
  if(NOT DEFINED ${name} OR "${${name}}" STREQUAL "")
    string(APPEND value_faults "\n  ${name} is missing: a Base58Check P2PKH main-chain address")
    continue()
  endif()
  execute_process(COMMAND "${CMAKE_BINARY_DIR}/check_address_program" "${${name}}" RESULT_VARIABLE bad)
  if(bad)
    string(APPEND value_faults "\n  ${name} is malformed (\"${${name}}\"): a P2PKH main-chain address with a good checksum")
  endif()
endforeach()
if(value_faults)
  message(FATAL_ERROR "${BRICKFALL_PRODUCTION_VALUES}:${value_faults}")
endif()

configure_file(deployment/production.cpp.in "${CMAKE_BINARY_DIR}/production.cpp" @ONLY)
add_library(deployment STATIC "${CMAKE_BINARY_DIR}/production.cpp")
