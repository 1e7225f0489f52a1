# Looks whether a library carries what a hardened build leaves in it. Run as:
# cmake -DREADELF=... -DOBJDUMP=... -DLIBRARY=... -DCONTROL_FLOW=ON|OFF -P check_hardening.cmake
execute_process(COMMAND ${READELF} --wide --program-headers --dynamic --dyn-syms ${LIBRARY}
  OUTPUT_VARIABLE found COMMAND_ERROR_IS_FATAL ANY)
set(marks " GNU_RELRO " " NOW\n" " __stack_chk_fail@")
if(CONTROL_FLOW)  # the C library's own objects may lack it, so the mark on the whole library cannot be asked for
  execute_process(COMMAND ${OBJDUMP} --disassemble=OnCmd ${LIBRARY} OUTPUT_VARIABLE code COMMAND_ERROR_IS_FATAL ANY)
  string(APPEND found "${code}")
  list(APPEND marks "endbr")
endif()
foreach(mark ${marks})
  string(FIND "${found}" "${mark}" place)
  if(place EQUAL -1)
    message(SEND_ERROR "${LIBRARY} has no ${mark}")
  endif()
endforeach()
