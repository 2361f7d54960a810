# Script behind the install.find_package test: install the build tree into WORK_DIR/prefix,
# then configure, build and run the consumer project against that prefix alone.
foreach(var TVX_BUILD_DIR CONSUMER_SOURCE_DIR WORK_DIR GENERATOR)
  if(NOT DEFINED ${var} OR "${${var}}" STREQUAL "")
    message(FATAL_ERROR "run_install_test.cmake needs -D${var}=...")
  endif()
endforeach()

# CONFIG is the configuration under test; it may be empty for a single-configuration build
# without a build type.
set(config_args)
if(NOT "${CONFIG}" STREQUAL "")
  set(config_args --config ${CONFIG})
endif()

set(prefix ${WORK_DIR}/prefix)
set(consumer_build ${WORK_DIR}/consumer-build)
file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})

function(run_step name)
  execute_process(COMMAND ${ARGN}
                  RESULT_VARIABLE rc
                  OUTPUT_VARIABLE out
                  ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "${name} failed (${rc}):\n${out}\n${err}")
  endif()
  set(step_output "${out}" PARENT_SCOPE)
endfunction()

run_step("install" ${CMAKE_COMMAND} --install ${TVX_BUILD_DIR} --prefix ${prefix} ${config_args})

# The public headers, and nothing else, land under include/tvx.
if(NOT EXISTS ${prefix}/include/tvx/core/term_manager.h)
  message(FATAL_ERROR "headers were not installed under ${prefix}/include/tvx")
endif()
file(GLOB top_level RELATIVE ${prefix}/include ${prefix}/include/*)
if(NOT top_level STREQUAL "tvx")
  message(FATAL_ERROR "the install put more than tvx/ on the include path: ${top_level}")
endif()
file(GLOB_RECURSE private_headers ${prefix}/include/tvx/*lexer*)
if(private_headers)
  message(FATAL_ERROR "private headers were installed: ${private_headers}")
endif()

set(configure_args
  -S ${CONSUMER_SOURCE_DIR} -B ${consumer_build} -G ${GENERATOR}
  "-DCMAKE_BUILD_TYPE=${CONFIG}"
  -DCMAKE_PREFIX_PATH=${prefix}
  -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF
  -DCMAKE_FIND_USE_SYSTEM_PACKAGE_REGISTRY=OFF)
if(DEFINED CXX_COMPILER AND NOT CXX_COMPILER STREQUAL "")
  list(APPEND configure_args -DCMAKE_CXX_COMPILER=${CXX_COMPILER})
endif()
# A sanitizer build's library needs the same flags in the program that links it.
if(DEFINED CXX_FLAGS AND NOT CXX_FLAGS STREQUAL "")
  list(APPEND configure_args "-DCMAKE_CXX_FLAGS=${CXX_FLAGS}"
       "-DCMAKE_EXE_LINKER_FLAGS=${EXE_LINKER_FLAGS}")
endif()
if(DEFINED MAKE_PROGRAM AND NOT MAKE_PROGRAM STREQUAL "")
  list(APPEND configure_args -DCMAKE_MAKE_PROGRAM=${MAKE_PROGRAM})
endif()
run_step("consumer configure" ${CMAKE_COMMAND} ${configure_args})

# The package must have come from the scratch prefix, not from the build tree or elsewhere.
file(STRINGS ${consumer_build}/CMakeCache.txt tvx_dir REGEX "^tvx_DIR:")
string(REGEX REPLACE "^tvx_DIR:[A-Z]+=" "" tvx_dir "${tvx_dir}")
file(REAL_PATH "${prefix}" real_prefix)
file(REAL_PATH "${tvx_dir}" real_tvx_dir)
string(FIND "${real_tvx_dir}" "${real_prefix}/" at)
if(NOT at EQUAL 0)
  message(FATAL_ERROR "tvx was found in '${tvx_dir}', not under ${prefix}")
endif()

run_step("consumer build" ${CMAKE_COMMAND} --build ${consumer_build} ${config_args})

set(exe ${consumer_build}/bin/${CONFIG}/tvx_consumer)
if("${CONFIG}" STREQUAL "")
  set(exe ${consumer_build}/bin/tvx_consumer)
endif()
# A consumer built with the leak checker links cvc5, whose libcln leaks by design while it
# loads; the install carries no suppression of its own, so the run brings one.
set(run_env)
if(CXX_FLAGS MATCHES "-fsanitize=[^ ]*(address|leak)")
  file(WRITE ${WORK_DIR}/lsan.supp "leak:libcln.so\n")
  set(run_env ${CMAKE_COMMAND} -E env "LSAN_OPTIONS=suppressions=${WORK_DIR}/lsan.supp")
endif()
run_step("consumer run" ${run_env} ${exe})
if(NOT step_output STREQUAL "tvx consumer ok\n")
  message(FATAL_ERROR "unexpected consumer output:\n${step_output}")
endif()
message(STATUS "consumer built against ${prefix} and ran")
