# Hardening of an optimised build: the flags Debian's dpkg-buildflags gives
# with every hardening feature on (stack protector, fortified libc calls,
# read-only relocations bound at start, position-independent executables).
# The optimisation, debug and path-mapping flags it also prints are left to
# the build type. Where dpkg-buildflags is missing (macOS), the same features
# are asked of the compiler directly, minus the ELF-only linker flags.
#
# Not with the sanitizers (their runtime replaces the libc calls that
# fortification wraps) and not without optimisation (glibc fortifies nothing
# at -O0 and warns that it cannot).

function(oru_hardening_flags_from_dpkg kind out)
  execute_process(
    COMMAND ${CMAKE_COMMAND} -E env DEB_BUILD_MAINT_OPTIONS=hardening=+all
            ${ORU_DPKG_BUILDFLAGS} --get ${kind}
    OUTPUT_VARIABLE flags OUTPUT_STRIP_TRAILING_WHITESPACE
    COMMAND_ERROR_IS_FATAL ANY)
  separate_arguments(flags UNIX_COMMAND "${flags}")
  list(FILTER flags EXCLUDE REGEX "^-(O.*|g.*|ffile-prefix-map=.*|fdebug-prefix-map=.*)$")
  set(${out} ${flags} PARENT_SCOPE)
endfunction()

function(oru_enable_hardening)
  find_program(ORU_DPKG_BUILDFLAGS dpkg-buildflags)
  if(ORU_DPKG_BUILDFLAGS)
    oru_hardening_flags_from_dpkg(CPPFLAGS preprocessor)
    oru_hardening_flags_from_dpkg(CXXFLAGS compiler)
    oru_hardening_flags_from_dpkg(LDFLAGS linker)
  else()
    set(preprocessor -D_FORTIFY_SOURCE=2)
    set(compiler -fstack-protector-strong -Wformat -Werror=format-security)
    set(linker)
  endif()
  message(STATUS "Hardening: ${preprocessor} ${compiler} ${linker}")
  add_compile_options(${preprocessor} ${compiler})
  add_link_options(${linker})
  set(CMAKE_POSITION_INDEPENDENT_CODE ON PARENT_SCOPE)
endfunction()

option(ORU_HARDEN "Build with the distribution's hardening flags (optimised builds only)" ON)
string(TOUPPER "${CMAKE_BUILD_TYPE}" ORU_BUILD_TYPE_UPPER)
if(ORU_HARDEN AND NOT ORU_SANITIZE AND ORU_BUILD_TYPE_UPPER MATCHES "^(RELEASE|RELWITHDEBINFO|MINSIZEREL)$")
  oru_enable_hardening()
  include(CheckPIESupported)
  check_pie_supported()
endif()
