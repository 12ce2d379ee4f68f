# orv_add_test(NAME <name> SOURCES <files...> LIBS <libs...> LABEL <label> [TIMEOUT <s>])
# Builds one Qt Test program and registers it with CTest. Every test runs on
# the offscreen platform with a private runtime directory, so no display and
# no shared state are needed.
set(ORV_TEST_RUNTIME_DIR "${CMAKE_BINARY_DIR}/test-runtime")
file(MAKE_DIRECTORY "${ORV_TEST_RUNTIME_DIR}")
file(CHMOD "${ORV_TEST_RUNTIME_DIR}" DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE)

# Leak detection is on for every test and for the programs the tests start
# (they inherit the environment); the leaks that are deliberate or not ours
# are named, each with its reason, in tests/lsan.supp. Any other leak fails.
set(ORV_LSAN_OPTIONS "suppressions=${CMAKE_SOURCE_DIR}/tests/lsan.supp:print_suppressions=0")

function(orv_add_test)
    cmake_parse_arguments(T "" "NAME;LABEL;TIMEOUT" "SOURCES;LIBS" ${ARGN})
    if(NOT T_TIMEOUT)
        set(T_TIMEOUT 120)
    endif()
    add_executable(${T_NAME} ${T_SOURCES})
    target_link_libraries(${T_NAME} PRIVATE ${T_LIBS} Qt5::Test)
    add_test(NAME ${T_NAME} COMMAND ${T_NAME})
    set_tests_properties(${T_NAME} PROPERTIES
        TIMEOUT ${T_TIMEOUT}
        LABELS ${T_LABEL}
        ENVIRONMENT "QT_QPA_PLATFORM=offscreen;XDG_RUNTIME_DIR=${ORV_TEST_RUNTIME_DIR};ASAN_OPTIONS=detect_leaks=1;LSAN_OPTIONS=${ORV_LSAN_OPTIONS}")
endfunction()
