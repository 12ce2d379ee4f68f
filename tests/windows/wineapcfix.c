/* wineapcfix.dll: lets a Windows QSerialPort receive under Wine 8.0.
 *
 * Qt Serial Port waits for incoming bytes with an overlapped
 * IOCTL_SERIAL_WAIT_ON_MASK (WaitCommEvent) issued through NtDeviceIoControlFile
 * with an APC completion routine and no event; only that routine starts the
 * next ReadFileEx. Wine 8.0's serial driver ignores the APC routine of that
 * ioctl (no APC is queued, no completion port packet is posted) and, as no
 * event was given, blocks the caller until an event arrives. So the routine
 * never runs, QSerialPort never reads, and the program receives nothing.
 *
 * This DLL hands Qt a replacement for NtDeviceIoControlFile (by patching the
 * GetProcAddress import of the program's own modules, through which Qt looks
 * the function up) that, for that one ioctl, gives Wine an event of its own,
 * returns at once, and queues the caller's APC to the calling thread when the
 * event is signalled, as Windows does. Every other call goes straight through.
 *
 * It is loaded into the program by winehookrun.exe before the program's main
 * runs. Test-only: nothing here ships.
 */
#include <windows.h>
#include <winternl.h>

#include <psapi.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#ifndef IOCTL_SERIAL_WAIT_ON_MASK
#define IOCTL_SERIAL_WAIT_ON_MASK                                                                  \
    CTL_CODE(FILE_DEVICE_SERIAL_PORT, 18, METHOD_BUFFERED, FILE_ANY_ACCESS)
#endif
#ifndef STATUS_PENDING
#define STATUS_PENDING ((NTSTATUS)0x00000103L)
#endif

typedef NTSTATUS(NTAPI *NtDeviceIoControlFileFn)(HANDLE, HANDLE, PIO_APC_ROUTINE, PVOID,
                                                 PIO_STATUS_BLOCK, ULONG, PVOID, ULONG, PVOID,
                                                 ULONG);
typedef NTSTATUS(NTAPI *NtQueueApcThreadFn)(HANDLE, PVOID, ULONG_PTR, ULONG_PTR, ULONG_PTR);
typedef FARPROC(WINAPI *GetProcAddressFn)(HMODULE, LPCSTR);

/* Function pointer casts through a neutral type: Win32 hands every function
 * out as FARPROC. */
#define FN_CAST(type, fn) ((type)(void (*)(void))(fn))

static NtDeviceIoControlFileFn realIoControl;
static NtQueueApcThreadFn queueApc;
static GetProcAddressFn realGetProcAddress;
static HMODULE ntdll;
static int trace;

/* One pending wait: what to hand to the APC once Wine signals the event. */
struct PendingWait {
    HANDLE event;
    HANDLE thread;
    HANDLE waitHandle;
    PIO_APC_ROUTINE apc;
    PVOID apcContext;
    PIO_STATUS_BLOCK iosb;
};

/* Runs as an APC on the thread that issued the wait: calls the caller's
 * routine, then frees the wait. Freeing here, on the issuing thread, is safe:
 * RegisterWaitForSingleObject has returned there long before. */
static void NTAPI completeOnIssuingThread(ULONG_PTR parameter, ULONG_PTR unused1, ULONG_PTR unused2)
{
    (void)unused1;
    (void)unused2;
    struct PendingWait *wait = (struct PendingWait *)parameter;
    if (trace)
        fprintf(stderr, "wineapcfix: completion routine called (iosb %#lx)\n",
                (unsigned long)wait->iosb->Status);
    wait->apc(wait->apcContext, wait->iosb, 0);
    if (wait->waitHandle)
        UnregisterWait(wait->waitHandle);
    CloseHandle(wait->event);
    CloseHandle(wait->thread);
    free(wait);
}

static void queueCompletion(struct PendingWait *wait)
{
    queueApc(wait->thread, FN_CAST(PVOID, completeOnIssuingThread), (ULONG_PTR)wait, 0, 0);
}

static VOID CALLBACK waitDone(PVOID parameter, BOOLEAN timedOut)
{
    (void)timedOut;
    /* Wine's polling thread has written the mask and the status block before
     * signalling the event. The wait belongs to the APC from here on. */
    queueCompletion(parameter);
}

static NTSTATUS NTAPI hookedIoControl(HANDLE file, HANDLE event, PIO_APC_ROUTINE apc,
                                      PVOID apcContext, PIO_STATUS_BLOCK iosb, ULONG code, PVOID in,
                                      ULONG inSize, PVOID out, ULONG outSize)
{
    if (code != IOCTL_SERIAL_WAIT_ON_MASK || !apc || event)
        return realIoControl(file, event, apc, apcContext, iosb, code, in, inSize, out, outSize);

    struct PendingWait *wait = calloc(1, sizeof *wait);
    if (!wait)
        return realIoControl(file, event, apc, apcContext, iosb, code, in, inSize, out, outSize);
    wait->event = CreateEventW(NULL, TRUE, FALSE, NULL);
    wait->apc = apc;
    wait->apcContext = apcContext;
    wait->iosb = iosb;
    DuplicateHandle(GetCurrentProcess(), GetCurrentThread(), GetCurrentProcess(), &wait->thread, 0,
                    FALSE, DUPLICATE_SAME_ACCESS);

    NTSTATUS status =
        realIoControl(file, wait->event, NULL, NULL, iosb, code, in, inSize, out, outSize);
    if (trace)
        fprintf(stderr, "wineapcfix: WAIT_ON_MASK returned %#lx\n", (unsigned long)status);
    if (status == STATUS_PENDING) {
        if (RegisterWaitForSingleObject(&wait->waitHandle, wait->event, waitDone, wait, INFINITE,
                                        WT_EXECUTEONLYONCE))
            return STATUS_PENDING;
        /* Without a registered wait, block as Wine would have done. */
        WaitForSingleObject(wait->event, INFINITE);
        status = iosb->Status;
    }
    /* Finished at once: Windows still runs the completion routine for a
     * success. */
    if (NT_SUCCESS(status)) {
        queueCompletion(wait);
    } else {
        CloseHandle(wait->event);
        CloseHandle(wait->thread);
        free(wait);
    }
    return status;
}

static FARPROC WINAPI hookedGetProcAddress(HMODULE module, LPCSTR name)
{
    if (module == ntdll && ((ULONG_PTR)name >> 16) != 0 &&
        strcmp(name, "NtDeviceIoControlFile") == 0)
        return FN_CAST(FARPROC, hookedIoControl);
    return realGetProcAddress(module, name);
}

/* Points the GetProcAddress slot of one module's import table at the hook. */
static int patchImports(HMODULE module)
{
    BYTE *base = (BYTE *)module;
    IMAGE_DOS_HEADER *dos = (IMAGE_DOS_HEADER *)base;
    IMAGE_NT_HEADERS *nt = (IMAGE_NT_HEADERS *)(base + dos->e_lfanew);
    IMAGE_DATA_DIRECTORY dir = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    if (!dir.VirtualAddress)
        return 0;
    int patched = 0;
    for (IMAGE_IMPORT_DESCRIPTOR *imp = (IMAGE_IMPORT_DESCRIPTOR *)(base + dir.VirtualAddress);
         imp->Name; ++imp) {
        IMAGE_THUNK_DATA *slot = (IMAGE_THUNK_DATA *)(base + imp->FirstThunk);
        for (; slot->u1.Function; ++slot) {
            if (slot->u1.Function != (ULONG_PTR)realGetProcAddress)
                continue;
            DWORD old;
            if (VirtualProtect(&slot->u1.Function, sizeof slot->u1.Function, PAGE_READWRITE,
                               &old)) {
                slot->u1.Function = (ULONG_PTR)hookedGetProcAddress;
                VirtualProtect(&slot->u1.Function, sizeof slot->u1.Function, old, &old);
                ++patched;
            }
        }
    }
    return patched;
}

static void install(HMODULE self)
{
    trace = getenv("WINEAPCFIX_TRACE") != NULL;
    ntdll = GetModuleHandleW(L"ntdll.dll");
    HMODULE kernel32 = GetModuleHandleW(L"kernel32.dll");
    realIoControl =
        FN_CAST(NtDeviceIoControlFileFn, GetProcAddress(ntdll, "NtDeviceIoControlFile"));
    queueApc = FN_CAST(NtQueueApcThreadFn, GetProcAddress(ntdll, "NtQueueApcThread"));
    realGetProcAddress = FN_CAST(GetProcAddressFn, GetProcAddress(kernel32, "GetProcAddress"));

    /* Every module of the program outside the Windows directory: the
     * executable, Qt and the compiler's runtime. */
    wchar_t windir[MAX_PATH];
    UINT windirLength = GetWindowsDirectoryW(windir, MAX_PATH);
    HMODULE modules[512];
    DWORD needed = 0;
    if (!K32EnumProcessModules(GetCurrentProcess(), modules, sizeof modules, &needed))
        return;
    int total = 0;
    for (DWORD i = 0; i < needed / sizeof(HMODULE) && i < 512; ++i) {
        wchar_t path[MAX_PATH];
        if (modules[i] == self || !GetModuleFileNameW(modules[i], path, MAX_PATH))
            continue;
        if (_wcsnicmp(path, windir, windirLength) == 0)
            continue;
        int n = patchImports(modules[i]);
        total += n;
        if (trace && n)
            fprintf(stderr, "wineapcfix: patched %ls\n", path);
    }
    if (trace)
        fprintf(stderr, "wineapcfix: %d import slots patched\n", total);
}

BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID reserved)
{
    (void)reserved;
    if (reason == DLL_PROCESS_ATTACH)
        install(instance);
    return TRUE;
}
