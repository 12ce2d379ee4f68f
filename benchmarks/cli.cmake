# orv-cli: the strict frame stream decoder and the jsonl report line.
orv_add_benchmark(bench_cli ${CMAKE_CURRENT_LIST_DIR}/bench_cli.cpp)
target_link_libraries(bench_cli PRIVATE orv_cli)
