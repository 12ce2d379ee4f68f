# Degenerate axis ranges through the settings file, the axis model and a
# real paint (run in the sanitizer build with every undefined behaviour fatal).
orv_add_test(NAME test_degenerate_ranges SOURCES test_degenerate_ranges.cpp ${ORV_MW_HARNESS}
             LIBS orv_app util LABEL app TIMEOUT 300)
target_compile_definitions(test_degenerate_ranges PRIVATE
    ORV_TRANSLATION_DIR="${CMAKE_SOURCE_DIR}/app")
