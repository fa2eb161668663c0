# Helpers shared by every module's CMakeLists.txt.

# oru_add_gtest(NAME SOURCES src... LIBS lib... LABELS label...)
# Builds one GoogleTest program and registers each of its tests with CTest.
function(oru_add_gtest name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBS;LABELS;PROPERTIES" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_LIBS} GTest::gmock GTest::gtest_main)
  gtest_discover_tests(${name}
    DISCOVERY_MODE PRE_TEST
    PROPERTIES LABELS "${ARG_LABELS}" ${ARG_PROPERTIES})
endfunction()

# oru_add_fuzzer(NAME SOURCES src... LIBS lib... CORPUS dir [RUNS n])
# Builds a libFuzzer target (Clang only) and registers a short CTest run of it
# that starts from the seed corpus and writes what it finds to a scratch folder.
function(oru_add_fuzzer name)
  if(NOT ORU_BUILD_FUZZERS)
    return()
  endif()
  cmake_parse_arguments(ARG "" "CORPUS;RUNS;SECONDS" "SOURCES;LIBS" ${ARGN})
  if(NOT ARG_RUNS)
    set(ARG_RUNS 200000)
  endif()
  if(NOT ARG_SECONDS)
    set(ARG_SECONDS 20)
  endif()
  add_executable(${name} ${ARG_SOURCES})
  target_compile_options(${name} PRIVATE -fsanitize=fuzzer)
  target_link_options(${name} PRIVATE -fsanitize=fuzzer)
  target_link_libraries(${name} PRIVATE ${ARG_LIBS})
  set(scratch "${CMAKE_CURRENT_BINARY_DIR}/${name}_corpus")
  file(MAKE_DIRECTORY ${scratch})
  add_test(NAME fuzz.${name}
    COMMAND $<TARGET_FILE:${name}> -runs=${ARG_RUNS} -max_total_time=${ARG_SECONDS}
      -print_final_stats=1 ${scratch} ${ARG_CORPUS})
  set_tests_properties(fuzz.${name} PROPERTIES LABELS fuzz)
endfunction()

# A program that starts often and briefly (the launcher) links the C++
# runtime into itself, keeping only the parts it calls, rather than loading
# and relocating all of the shared one, and needs no library it does not
# call. Not with the sanitizers, whose runtime expects the shared C++
# library, nor with another compiler than GCC, where it is untried.
function(oru_link_lean target)
  if(NOT ORU_SANITIZE AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_link_options(${target} PRIVATE -static-libstdc++ -static-libgcc -Wl,--gc-sections
                        -Wl,--as-needed)
  endif()
endfunction()
