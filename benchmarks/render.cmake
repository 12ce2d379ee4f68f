# orv-cli summary and render: log-line parse, one-hour scan, picture.
orv_add_benchmark(bench_render ${CMAKE_CURRENT_SOURCE_DIR}/bench_render.cpp)
target_link_libraries(bench_render PRIVATE orv_render radar_sim_core)
