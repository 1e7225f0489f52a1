# How optimised builds are hardened: stack protector, checked library calls, control-flow protection where the processor
# has it, and no writable relocations. A sanitizer has its own checks, and replaces library calls itself.
set(KIV_HARDENING)
if(NOT KIV_SANITIZE AND NOT CMAKE_BUILD_TYPE STREQUAL Debug)
  set(KIV_HARDENING -fstack-protector-strong -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
  include(CheckCXXCompilerFlag)
  check_cxx_compiler_flag(-fcf-protection KIV_HAS_CF_PROTECTION)
  if(KIV_HAS_CF_PROTECTION)
    list(APPEND KIV_HARDENING -fcf-protection)
  endif()
  add_compile_options(${KIV_HARDENING})
  add_link_options(LINKER:-z,relro LINKER:-z,now)
endif()
include(CheckPIESupported)
check_pie_supported()  # programs are position-independent as well
