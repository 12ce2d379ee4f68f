# Axis model and plot view.
orv_add_test(NAME test_xyaxis SOURCES test_xyaxis.cpp LIBS orv_view LABEL view)
orv_add_test(NAME test_xyview SOURCES test_xyview.cpp LIBS orv_view LABEL view)
orv_add_test(NAME test_paintshortcuts SOURCES test_paintshortcuts.cpp LIBS orv_view LABEL view)
