# Tests of the main window and the restart loop: real widgets on the
# offscreen platform, the module played on a pseudo-terminal.
set(ORV_MW_HARNESS test_mwharness.cpp test_mwharness.h)
set(ORV_MW_TESTS test_mainwindow_layout test_mainwindow_commands test_mainwindow_responses
    test_restartloop)

foreach(test_name ${ORV_MW_TESTS})
    orv_add_test(NAME ${test_name} SOURCES ${test_name}.cpp ${ORV_MW_HARNESS}
                 LIBS orv_app util LABEL app TIMEOUT 300)
    target_compile_definitions(${test_name} PRIVATE
        ORV_TRANSLATION_DIR="${CMAKE_SOURCE_DIR}/app")
    # The layout test builds the window's form on a plain QMainWindow too.
    set_target_properties(${test_name} PROPERTIES AUTOUIC_SEARCH_PATHS ${CMAKE_SOURCE_DIR}/app)
endforeach()
