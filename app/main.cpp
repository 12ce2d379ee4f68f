#include <cstdio>
int main()
{
    std::fprintf(stderr, "orv-tool: the main window is not built yet\n");
    return 0;
}
