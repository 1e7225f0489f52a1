# How optimised builds are hardened: stack protector, checked library calls, control-flow protection where the processor
# has it, and no writable relocations. Sanitizers bring their own checks, and need unoptimised library calls.
set(KIV_HARDENING)
if(CMAKE_BUILD_TYPE STREQUAL RelWithDebInfo AND NOT KIV_SANITIZE)
  set(KIV_HARDENING -fstack-protector-strong -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
  if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64)$")
    list(APPEND KIV_HARDENING -fcf-protection=full)
  endif()
  add_compile_options(${KIV_HARDENING})
  add_link_options(LINKER:-z,relro LINKER:-z,now)
endif()
include(CheckPIESupported)
check_pie_supported()  # programs are position-independent as well
