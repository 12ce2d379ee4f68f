# orv_add_test(NAME <name> SOURCES <files...> LIBS <libs...> LABEL <label> [TIMEOUT <s>])
# Builds one Qt Test program and registers it with CTest (labels: see below;
# docs/testing.md lists them). Every test runs on
# the offscreen platform with a private runtime directory, so no display and
# no shared state are needed.
set(ORV_TEST_RUNTIME_DIR "${CMAKE_BINARY_DIR}/test-runtime")
file(MAKE_DIRECTORY "${ORV_TEST_RUNTIME_DIR}")
file(CHMOD "${ORV_TEST_RUNTIME_DIR}" DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE)

# Leak detection is on for every test and for the programs the tests start
# (they inherit the environment); the leaks that are deliberate or not ours
# are named, each with its reason, in tests/lsan.supp. Any other leak fails.
set(ORV_LSAN_OPTIONS "suppressions=${CMAKE_SOURCE_DIR}/tests/lsan.supp:print_suppressions=0")
set(ORV_TEST_ENV "QT_QPA_PLATFORM=offscreen;XDG_RUNTIME_DIR=${ORV_TEST_RUNTIME_DIR};ASAN_OPTIONS=detect_leaks=1;LSAN_OPTIONS=${ORV_LSAN_OPTIONS}")
set(ORV_TEST_EXTRA_LABEL)

# Cross-built for Windows, the tests run through Wine (the toolchain file's
# emulator) in a prefix of their own that scripts/test prepares. Wine drops
# variables whose names begin with QT_ and passes WINEQT_<x> on as QT_<x>;
# the DLLs are found through WINEPATH; the offscreen platform needs a font
# directory; Qt Test writes to stderr only when told to.
if(WIN32 AND CMAKE_CROSSCOMPILING)
    execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=libstdc++-6.dll
                    OUTPUT_VARIABLE ORV_MINGW_STDCXX OUTPUT_STRIP_TRAILING_WHITESPACE)
    get_filename_component(ORV_MINGW_RUNTIME_DIR "${ORV_MINGW_STDCXX}" DIRECTORY)
    set(ORV_WINE_PREFIX "${CMAKE_BINARY_DIR}/wine" CACHE PATH "Wine prefix the tests run in")
    set(ORV_WINEPATH "${ORV_QT_WIN_PREFIX}/bin\\;${ORV_MINGW_RUNTIME_DIR}\\;/usr/x86_64-w64-mingw32/lib")
    set(ORV_TEST_ENV
        "WINEPREFIX=${ORV_WINE_PREFIX};WINEDEBUG=-all;WINEDLLOVERRIDES=mscoree,mshtml=;WINEPATH=${ORV_WINEPATH};WINEQT_QPA_PLATFORM=offscreen;WINEQT_FORCE_STDERR_LOGGING=1;WINEQT_QPA_FONTDIR=/usr/share/fonts/truetype/wqy;WINEQT_PLUGIN_PATH=${ORV_QT_WIN_PREFIX}/plugins")
    set(ORV_TEST_EXTRA_LABEL windows)
endif()

function(orv_add_test)
    cmake_parse_arguments(T "" "NAME;LABEL;TIMEOUT" "SOURCES;LIBS" ${ARGN})
    if(NOT T_TIMEOUT)
        set(T_TIMEOUT 120)
    endif()
    add_executable(${T_NAME} ${T_SOURCES})
    target_link_libraries(${T_NAME} PRIVATE ${T_LIBS} Qt5::Test)
    add_test(NAME ${T_NAME} COMMAND ${T_NAME})
    # The folder's label, and "unit" for every test that needs no X server,
    # no Wine and no packaging tools: the quick loop (scripts/test --quick)
    # runs those.
    set(labels ${T_LABEL} ${ORV_TEST_EXTRA_LABEL})
    if(NOT ORV_TEST_EXTRA_LABEL AND NOT T_LABEL MATCHES "^(e2e|windows)$")
        list(APPEND labels unit)
    endif()
    set_tests_properties(${T_NAME} PROPERTIES
        TIMEOUT ${T_TIMEOUT}
        LABELS "${labels}"
        ENVIRONMENT "${ORV_TEST_ENV}")
endfunction()
