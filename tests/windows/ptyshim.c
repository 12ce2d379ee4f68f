/* ptyshim.so: LD_PRELOAD'ed into Wine so that a COM port mapped to a Linux
 * pseudo-terminal behaves like a serial port with its modem lines up.
 *
 * Wine 8.0's WaitCommEvent polls the port every 10 ms with TIOCGICOUNT,
 * TIOCSERGETLSR and TIOCMGET besides TIOCINQ. A pseudo-terminal has no modem
 * lines and answers those with ENOTTY; TIOCMGET failing makes Wine end every
 * wait at once with no event (and a status of STATUS_CANCELLED), so a program
 * waiting for received bytes never sees them. Here, only on pseudo-terminals
 * and only when the kernel refused, the modem ioctls succeed: DTR, RTS, CTS,
 * DSR and DCD are on, no interrupts were counted, the transmitter is empty.
 * Test-only: nothing here ships.
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <linux/serial.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

typedef int (*IoctlFn)(int, unsigned long, void *);

/* Unix98 pseudo-terminal slaves have the majors 136..143. */
static int isPseudoTerminal(int fd)
{
    struct stat st;
    return fstat(fd, &st) == 0 && S_ISCHR(st.st_mode) && major(st.st_rdev) >= 136 &&
           major(st.st_rdev) <= 143;
}

int ioctl(int fd, unsigned long request, ...)
{
    static IoctlFn realIoctl;
    if (!realIoctl)
        realIoctl = (IoctlFn)dlsym(RTLD_NEXT, "ioctl");

    va_list ap;
    va_start(ap, request);
    void *arg = va_arg(ap, void *);
    va_end(ap);

    int result = realIoctl(fd, request, arg);
    if (result != -1 || errno != ENOTTY || !isPseudoTerminal(fd))
        return result;

    switch (request) {
    case TIOCMGET:
        *(int *)arg = TIOCM_DTR | TIOCM_RTS | TIOCM_CTS | TIOCM_DSR | TIOCM_CAR;
        return 0;
    case TIOCMSET:
    case TIOCMBIS:
    case TIOCMBIC:
        return 0;
    case TIOCGICOUNT:
        memset(arg, 0, sizeof(struct serial_icounter_struct));
        return 0;
    case TIOCSERGETLSR:
        *(int *)arg = TIOCSER_TEMT;
        return 0;
    default:
        errno = ENOTTY;
        return -1;
    }
}
