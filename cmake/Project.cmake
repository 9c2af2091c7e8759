# Warnings as errors for the project's own code.
function(az_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Werror -Wshadow
    -Wno-unused-parameter)
endfunction()

# az_test(name source...): one GoogleTest executable registered with CTest.
function(az_test name)
  add_executable(${name} ${ARGN})
  az_warnings(${name})
  target_link_libraries(${name} PRIVATE GTest::gtest GTest::gtest_main)
  add_test(NAME ${name} COMMAND ${name})
endfunction()

# az_version(target): the project's version as AZ_VERSION, for --version.
function(az_version target)
  target_compile_definitions(${target} PRIVATE AZ_VERSION="${PROJECT_VERSION}")
endfunction()
