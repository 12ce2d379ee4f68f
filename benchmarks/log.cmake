# Diagnostic log: cost of Logger::write for the caller, and the worker's
# file-writing throughput.
orv_add_benchmark(bench_log ${CMAKE_CURRENT_SOURCE_DIR}/bench_log.cpp)
target_link_libraries(bench_log PRIVATE orv_log)
