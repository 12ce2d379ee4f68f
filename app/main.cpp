#include "app/restartloop.h"

int main(int argc, char *argv[])
{
    runRestartLoop(argc, argv);
    return 0;
}
