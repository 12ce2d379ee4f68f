/* winehookrun.exe DLL PROGRAM [ARGUMENTS...]
 *
 * Starts PROGRAM with its arguments and loads DLL into it before PROGRAM's own
 * code runs, then lets it run on its own and exits with its exit code. Used by
 * the Wine serial test to load wineapcfix.dll into the unchanged orv-cli.exe.
 *
 * How: PROGRAM is started under the debugging API; a breakpoint on its entry
 * point stops it once the loader is done (the loader lock is free), a thread
 * created in it loads DLL while the main thread waits, and the debugger then
 * detaches. Test-only: nothing here ships.
 */
#include <windows.h>

#include <stdio.h>
#include <wchar.h>

/* The command line after the first two arguments, exactly as it was typed. */
static const wchar_t *skipArguments(const wchar_t *line, int count)
{
    for (int i = 0; i < count; ++i) {
        while (*line == L' ' || *line == L'\t')
            ++line;
        int quoted = 0;
        for (; *line; ++line) {
            if (*line == L'"')
                quoted = !quoted;
            else if (!quoted && (*line == L' ' || *line == L'\t'))
                break;
        }
    }
    while (*line == L' ' || *line == L'\t')
        ++line;
    return line;
}

static int fail(const char *what, PROCESS_INFORMATION *pi)
{
    fprintf(stderr, "winehookrun: %s failed (error %lu)\n", what, GetLastError());
    if (pi && pi->hProcess)
        TerminateProcess(pi->hProcess, 125);
    return 125;
}

int wmain(int argc, wchar_t **argv)
{
    if (argc < 3) {
        fprintf(stderr, "usage: winehookrun.exe DLL PROGRAM [ARGUMENTS...]\n");
        return 125;
    }
    wchar_t dll[MAX_PATH];
    if (!GetFullPathNameW(argv[1], MAX_PATH, dll, NULL))
        return fail("GetFullPathName", NULL);
    wchar_t *command = _wcsdup(skipArguments(GetCommandLineW(), 2));

    STARTUPINFOW si;
    ZeroMemory(&si, sizeof si);
    si.cb = sizeof si;
    PROCESS_INFORMATION pi = {0};
    if (!CreateProcessW(NULL, command, NULL, NULL, TRUE, DEBUG_ONLY_THIS_PROCESS, NULL, NULL, &si,
                        &pi))
        return fail("CreateProcess", NULL);

    BYTE *entry = NULL;
    BYTE savedByte = 0;
    HANDLE mainThread = pi.hThread;
    DWORD loaderThreadId = 0;
    HANDLE loaderThread = NULL;
    int detached = 0;
    DWORD exitCode = 125;

    while (!detached) {
        DEBUG_EVENT ev;
        if (!WaitForDebugEvent(&ev, INFINITE))
            return fail("WaitForDebugEvent", &pi);
        DWORD verdict = DBG_CONTINUE;
        switch (ev.dwDebugEventCode) {
        case CREATE_PROCESS_DEBUG_EVENT: {
            if (ev.u.CreateProcessInfo.hFile)
                CloseHandle(ev.u.CreateProcessInfo.hFile);
            entry = (BYTE *)ev.u.CreateProcessInfo.lpStartAddress;
            const BYTE int3 = 0xCC;
            if (!ReadProcessMemory(pi.hProcess, entry, &savedByte, 1, NULL) ||
                !WriteProcessMemory(pi.hProcess, entry, &int3, 1, NULL))
                return fail("setting the entry breakpoint", &pi);
            FlushInstructionCache(pi.hProcess, entry, 1);
            break;
        }
        case LOAD_DLL_DEBUG_EVENT:
            if (ev.u.LoadDll.hFile)
                CloseHandle(ev.u.LoadDll.hFile);
            break;
        case EXCEPTION_DEBUG_EVENT: {
            const EXCEPTION_RECORD *rec = &ev.u.Exception.ExceptionRecord;
            if (rec->ExceptionCode == EXCEPTION_BREAKPOINT &&
                (BYTE *)rec->ExceptionAddress == entry && entry) {
                /* At the entry point: put the byte back, step back onto it,
                 * hold the main thread and load the DLL from a new thread. */
                WriteProcessMemory(pi.hProcess, entry, &savedByte, 1, NULL);
                FlushInstructionCache(pi.hProcess, entry, 1);
                CONTEXT ctx;
                ctx.ContextFlags = CONTEXT_CONTROL;
                if (!GetThreadContext(mainThread, &ctx))
                    return fail("GetThreadContext", &pi);
                ctx.Rip = (DWORD64)entry;
                if (!SetThreadContext(mainThread, &ctx))
                    return fail("SetThreadContext", &pi);
                SuspendThread(mainThread);
                entry = NULL;

                size_t bytes = (wcslen(dll) + 1) * sizeof(wchar_t);
                void *remote = VirtualAllocEx(pi.hProcess, NULL, bytes, MEM_COMMIT, PAGE_READWRITE);
                if (!remote || !WriteProcessMemory(pi.hProcess, remote, dll, bytes, NULL))
                    return fail("writing the DLL path", &pi);
                /* kernel32 sits at the same address in every process. */
                FARPROC loadLibrary =
                    GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "LoadLibraryW");
                loaderThread = CreateRemoteThread(
                    pi.hProcess, NULL, 0, (LPTHREAD_START_ROUTINE)(void (*)(void))loadLibrary,
                    remote, 0, &loaderThreadId);
                if (!loaderThread)
                    return fail("CreateRemoteThread", &pi);
            } else if (rec->ExceptionCode != EXCEPTION_BREAKPOINT) {
                verdict = DBG_EXCEPTION_NOT_HANDLED;
            }
            break;
        }
        case EXIT_THREAD_DEBUG_EVENT:
            if (loaderThread && ev.dwThreadId == loaderThreadId) {
                DWORD loaded = 0;
                GetExitCodeThread(loaderThread, &loaded);
                if (!loaded) {
                    fwprintf(stderr, L"winehookrun: %ls could not be loaded\n", dll);
                    TerminateProcess(pi.hProcess, 125);
                }
                ContinueDebugEvent(ev.dwProcessId, ev.dwThreadId, DBG_CONTINUE);
                DebugSetProcessKillOnExit(FALSE);
                DebugActiveProcessStop(pi.dwProcessId);
                ResumeThread(mainThread);
                detached = 1;
                continue;
            }
            break;
        case EXIT_PROCESS_DEBUG_EVENT:
            exitCode = ev.u.ExitProcess.dwExitCode;
            ContinueDebugEvent(ev.dwProcessId, ev.dwThreadId, DBG_CONTINUE);
            fprintf(stderr, "winehookrun: the program ended before the DLL was loaded\n");
            return (int)exitCode;
        default:
            break;
        }
        ContinueDebugEvent(ev.dwProcessId, ev.dwThreadId, verdict);
    }

    WaitForSingleObject(pi.hProcess, INFINITE);
    GetExitCodeProcess(pi.hProcess, &exitCode);
    return (int)exitCode;
}
