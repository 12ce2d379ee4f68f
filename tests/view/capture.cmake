# Area capture overlay.
orv_add_test(NAME test_capturescreen
    SOURCES ${CMAKE_CURRENT_LIST_DIR}/test_capturescreen.cpp
    LIBS orv_view
    LABEL view
    TIMEOUT 120)
