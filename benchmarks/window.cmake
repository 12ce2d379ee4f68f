# orv-window-cpu: CPU time of the real tool per report period in a real
# window under Xvfb (reuses the real-window test's session), run by hand.
add_executable(orv-window-cpu orvwindowcpu.cpp)
target_link_libraries(orv-window-cpu PRIVATE orv_e2e_session)
