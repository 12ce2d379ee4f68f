# Translation table and the shipped language files.
orv_add_test(NAME test_translationtable SOURCES test_translationtable.cpp LIBS orv_text LABEL app)
target_compile_definitions(test_translationtable
                           PRIVATE ORV_TRANSLATION_DIR="${CMAKE_SOURCE_DIR}/app")
