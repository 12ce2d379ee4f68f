# Radar link: frame building and checking, and the receive scan with and
# without the diagnostic log.
orv_add_benchmark(bench_radar ${CMAKE_CURRENT_LIST_DIR}/bench_radar.cpp)
target_link_libraries(bench_radar PRIVATE orv_radar)
