# Warnings for the project's own code. They are errors where the project
# checks itself (-DAZ_WERROR=ON, as scripts/test.sh and CI build); a user's
# build never stops on a warning that a newer compiler learnt.
option(AZ_WERROR "Treat the project's warnings as errors" OFF)
function(az_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wshadow -Wno-unused-parameter
    $<$<BOOL:${AZ_WERROR}>:-Werror>)
endfunction()

# az_test(name source...): one GoogleTest executable registered with CTest.
# Test programs stay beside their sources in the build tree: bin/ holds only
# what is installed.
function(az_test name)
  add_executable(${name} ${ARGN})
  az_warnings(${name})
  target_link_libraries(${name} PRIVATE GTest::gtest GTest::gtest_main)
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR})
  add_test(NAME ${name} COMMAND ${name})
endfunction()

# az_version(target): the project's version as AZ_VERSION, for --version.
function(az_version target)
  target_compile_definitions(${target} PRIVATE AZ_VERSION="${PROJECT_VERSION}")
endfunction()
