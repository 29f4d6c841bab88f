# What makes a fault harder to use, in every program; scripts/check-hardening.sh reads it back from the ELF files.
include(CheckCXXCompilerFlag)

# Position-independent programs. In the flags, where a library that asks for more (-fPIC) comes behind it.
string(APPEND CMAKE_CXX_FLAGS " -fPIE")
add_link_options("$<$<STREQUAL:$<TARGET_PROPERTY:TYPE>,EXECUTABLE>:-pie>"
                 -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)

add_compile_options(-fstack-protector-strong)
foreach(flag -fstack-clash-protection -fcf-protection)  # not every machine and compiler has them
  string(MAKE_C_IDENTIFIER "BRICKFALL_HAS${flag}" has_flag)
  check_cxx_compiler_flag(${flag} ${has_flag})
  if(${has_flag})
    add_compile_options(${flag})
  endif()
endforeach()

# The checks need what the optimiser knows about sizes; the sanitizers bring their own.
if(NOT BRICKFALL_SANITIZE AND NOT CMAKE_BUILD_TYPE STREQUAL "Debug")
  add_compile_definitions(_FORTIFY_SOURCE=2)
endif()

# No folder of the building machine in a program, neither in a macro nor in what a debugger reads.
add_compile_options(-ffile-prefix-map=${CMAKE_SOURCE_DIR}=.)
set(CMAKE_SKIP_RPATH ON)  # every library is the system's
