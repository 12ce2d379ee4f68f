# Plot view benchmarks (built by the test script, run by hand).
orv_add_benchmark(bench_view bench_view.cpp)
target_link_libraries(bench_view PRIVATE orv_view)
