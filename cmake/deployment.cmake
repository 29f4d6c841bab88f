# The library `deployment`: the sandbox's values, or the ones of the file named by BRICKFALL_PRODUCTION_VALUES.
if(BRICKFALL_DEPLOYMENT STREQUAL "sandbox")
  add_library(deployment STATIC deployment/sandbox.cpp)
elseif(BRICKFALL_DEPLOYMENT STREQUAL "production")
  include(cmake/production.cmake)
else()
  message(FATAL_ERROR "BRICKFALL_DEPLOYMENT must be \"sandbox\" or \"production\", not \"${BRICKFALL_DEPLOYMENT}\"")
endif()
target_link_libraries(deployment PUBLIC brickfall_options)
