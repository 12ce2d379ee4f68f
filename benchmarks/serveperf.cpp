// serve-perf: measures `orv-cli serve` from the outside. It plays the radar
// modules itself on pseudo-terminals it opens (answering the service's
// requests with radar-sim's protocol code), writes report frames at a fixed
// rate, starts the service on them and connects viewers (event streams on
// loopback) or an MQTT subscriber. Everything is bounded in count and time and
// stops by itself; the figures go to standard output.
//
//   serve-perf latency   --cli PATH [--viewers N] [--frames F]
//   serve-perf cpu       --cli PATH [--seconds S]       (service beside orv-cli watch)
//   serve-perf memory    --cli PATH                   (100 and 1000 viewers)
//   serve-perf stuck     --cli PATH [--seconds S]     (growth with a stuck viewer)
//   serve-perf mqtt-latency --cli PATH --broker PORT [--frames F]
//   serve-perf mqtt-count   --cli PATH --broker PORT [--seconds S]
//   serve-perf mqtt-cpu     --cli PATH --broker PORT [--seconds S]

#include "radar/frameformat.h"
#include "tools/radar-sim/radarsimulator.h"

#include <mosquitto.h>

#include <QByteArray>
#include <QList>
#include <QPointF>
#include <QVector>

#include <algorithm>
#include <arpa/inet.h>
#include <atomic>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <linux/errqueue.h>
#include <linux/net_tstamp.h>
#include <map>
#include <memory>
#include <mutex>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <string>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace
{

// Nanoseconds of the real-time clock: the kernel's receive timestamps on the
// viewers' sockets are on that clock.
using Clock = long long;

Clock now()
{
    timespec ts;
    clock_gettime(CLOCK_REALTIME, &ts);
    return Clock(ts.tv_sec) * 1000000000LL + ts.tv_nsec;
}

[[noreturn]] void fail(const std::string &what)
{
    std::fprintf(stderr, "serve-perf: %s\n", what.c_str());
    std::exit(1);
}

// ---- the simulated module -------------------------------------------------

// One module on a pseudo-terminal: this end holds the master and also keeps
// the slave open (raw), so frames written before the service opens the port
// neither fail nor echo. Requests are answered by radar-sim's protocol code.
class FakeModule
{
public:
    FakeModule()
    {
        master = posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK);
        if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0)
            fail("no pseudo-terminal");
        slavePath = ptsname(master);
        slave = ::open(slavePath.c_str(), O_RDWR | O_NOCTTY);
        if (slave < 0)
            fail("cannot open " + slavePath);
        termios t;
        tcgetattr(slave, &t);
        cfmakeraw(&t);
        tcsetattr(slave, TCSANOW, &t);
    }
    ~FakeModule()
    {
        ::close(master);
        ::close(slave);
    }

    // Answers whatever requests the service has sent.
    void pump()
    {
        char buffer[4096];
        for (;;) {
            const ssize_t n = ::read(master, buffer, sizeof buffer);
            if (n <= 0)
                return;
            for (const RadarSimulator::Reply &reply : sim.receive(QByteArray(buffer, int(n))))
                for (const QByteArray &frame : reply.frames)
                    write(frame);
        }
    }

    // Writes the whole frame; returns the time its last byte was handed over.
    Clock write(const QByteArray &frame)
    {
        int done = 0;
        while (done < frame.size()) {
            const ssize_t n =
                ::write(master, frame.constData() + done, size_t(frame.size() - done));
            if (n > 0)
                done += int(n);
            else if (n < 0 && errno != EAGAIN && errno != EINTR)
                return now(); // line gone; the caller sees the event never comes
        }
        return now();
    }

    int fd() const { return master; }
    RadarSimulator sim{115200};
    std::string slavePath;

private:
    int master = -1;
    int slave = -1;
};

// A targets report whose first person's position encodes seq (x = seq % 200
// - 100, y = seq / 200 % 100, in decimetres), the others walking slowly.
QByteArray numberedReport(int seq, int people)
{
    QVector<QPointF> targets;
    targets.append(QPointF((seq % 200 - 100) * 0.1, (seq / 200 % 100) * 0.1));
    for (int i = 1; i < people; ++i)
        targets.append(QPointF(-2.0 + i + 0.1 * (seq % 10), 1.0 + i));
    RadarSimulator s;
    return s.targetReport(targets);
}

QByteArray areaFrame(bool a1, bool a2 = false, bool a3 = false)
{
    QByteArray payload;
    payload.append(char(a1)).append(char(a2)).append(char(a3));
    return frameformat::buildFrame(TargetAreaReport, payload);
}

// The seq a jsonl targets record carries (see numberedReport), or -1.
int seqOfRecord(const char *line)
{
    const char *p = std::strstr(line, "\"targets\":[[");
    if (!p)
        return -1;
    p += 12;
    char *end = nullptr;
    const double x = std::strtod(p, &end);
    if (end == p || *end != ',')
        return -1;
    const double y = std::strtod(end + 1, nullptr);
    const int xd = int(std::lround(x * 10)), yd = int(std::lround(y * 10));
    return (xd + 100) + 200 * yd;
}

// ---- processes ------------------------------------------------------------

struct Child {
    pid_t pid = -1;
};

// outFile gets the child's standard output and error; with pipeOut, its
// standard output goes to a pipe whose reading end is returned there.
Child spawn(const std::vector<std::string> &args, const std::string &outFile,
            int *pipeOut = nullptr)
{
    int ends[2] = {-1, -1};
    if (pipeOut && pipe2(ends, O_CLOEXEC) != 0)
        fail("pipe");
    Child c;
    c.pid = fork();
    if (c.pid < 0)
        fail("fork");
    if (c.pid == 0) {
        const int out = ::open(outFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        dup2(pipeOut ? ends[1] : out, 1);
        dup2(out, 2);
        std::vector<char *> argv;
        for (const std::string &a : args)
            argv.push_back(const_cast<char *>(a.c_str()));
        argv.push_back(nullptr);
        execv(argv[0], argv.data());
        _exit(127);
    }
    if (pipeOut) {
        ::close(ends[1]);
        fcntl(ends[0], F_SETFL, O_NONBLOCK);
        *pipeOut = ends[0];
    }
    return c;
}

void stop(Child &c)
{
    if (c.pid <= 0)
        return;
    kill(c.pid, SIGTERM);
    for (int i = 0; i < 300; ++i) {
        if (waitpid(c.pid, nullptr, WNOHANG) == c.pid) {
            c.pid = -1;
            return;
        }
        usleep(10000);
    }
    kill(c.pid, SIGKILL);
    waitpid(c.pid, nullptr, 0);
    c.pid = -1;
}

// CPU time of a process in nanoseconds: the sum over its threads of the time
// on a CPU (/proc/PID/task/*/schedstat), finer than the 10 ms clock ticks.
Clock cpuTime(pid_t pid)
{
    const std::string dir = "/proc/" + std::to_string(pid) + "/task";
    DIR *d = opendir(dir.c_str());
    if (!d)
        return 0;
    Clock total = 0;
    while (dirent *e = readdir(d)) {
        if (e->d_name[0] == '.')
            continue;
        FILE *f = std::fopen((dir + "/" + e->d_name + "/schedstat").c_str(), "r");
        if (!f)
            continue;
        long long ns = 0;
        if (std::fscanf(f, "%lld", &ns) == 1)
            total += ns;
        std::fclose(f);
    }
    closedir(d);
    return total;
}

// CPU time of each thread (name -> nanoseconds; threads of one name summed).
std::map<std::string, Clock> threadTimes(pid_t pid)
{
    std::map<std::string, Clock> out;
    const std::string dir = "/proc/" + std::to_string(pid) + "/task";
    DIR *d = opendir(dir.c_str());
    if (!d)
        return out;
    while (dirent *e = readdir(d)) {
        if (e->d_name[0] == '.')
            continue;
        const std::string task = dir + "/" + e->d_name;
        char name[64] = "?";
        if (FILE *f = std::fopen((task + "/comm").c_str(), "r")) {
            if (std::fgets(name, sizeof name, f))
                name[std::strcspn(name, "\n")] = '\0';
            std::fclose(f);
        }
        if (FILE *f = std::fopen((task + "/schedstat").c_str(), "r")) {
            long long ns = 0;
            if (std::fscanf(f, "%lld", &ns) == 1)
                out[std::string(name) +
                    (task == dir + "/" + std::to_string(pid) ? " (main)" : "")] += ns;
            std::fclose(f);
        }
    }
    closedir(d);
    return out;
}

long statusField(pid_t pid, const char *field) // kB or count from /proc/PID/status
{
    FILE *f = std::fopen(("/proc/" + std::to_string(pid) + "/status").c_str(), "r");
    if (!f)
        return -1;
    char line[256];
    long value = -1;
    const size_t len = std::strlen(field);
    while (std::fgets(line, sizeof line, f))
        if (std::strncmp(line, field, len) == 0 && line[len] == ':')
            value = std::atol(line + len + 1);
    std::fclose(f);
    return value;
}

// ---- HTTP on loopback -----------------------------------------------------

int freePort()
{
    const int s = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    bind(s, reinterpret_cast<sockaddr *>(&a), sizeof a);
    socklen_t len = sizeof a;
    getsockname(s, reinterpret_cast<sockaddr *>(&a), &len);
    ::close(s);
    return ntohs(a.sin_port);
}

// receiveBuffer > 0: a small receive buffer, set before the handshake so the
// window the viewer offers is small from the start.
int connectTo(int port, bool blocking, int receiveBuffer = 0)
{
    const int s = socket(AF_INET, SOCK_STREAM | (blocking ? 0 : SOCK_NONBLOCK), 0);
    if (receiveBuffer > 0)
        setsockopt(s, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    a.sin_port = htons(quint16(port));
    if (::connect(s, reinterpret_cast<sockaddr *>(&a), sizeof a) != 0 && errno != EINPROGRESS) {
        ::close(s);
        return -1;
    }
    return s;
}

const char kToken[] = "5e7f0a1c2b3d4e5f60718293a4b5c6d7e8f90a1b2c3d4e5f60718293a4b5c6d7";

std::string request(const std::string &path, int port)
{
    return "GET " + path + " HTTP/1.0\r\nHost: 127.0.0.1:" + std::to_string(port) +
           "\r\nAuthorization: Bearer " + kToken + "\r\n\r\n";
}

// A blocking GET; the whole answer, or "" when the service is not there.
std::string httpGet(int port, const std::string &path)
{
    const int s = connectTo(port, true);
    if (s < 0)
        return {};
    timeval tv{2, 0};
    setsockopt(s, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
    const std::string r = request(path, port);
    if (::send(s, r.data(), r.size(), MSG_NOSIGNAL) != ssize_t(r.size())) {
        ::close(s);
        return {};
    }
    std::string answer;
    char buffer[4096];
    ssize_t n;
    while ((n = ::recv(s, buffer, sizeof buffer, 0)) > 0)
        answer.append(buffer, size_t(n));
    ::close(s);
    return answer;
}

// Frames the service's modules took in, summed (its /metrics).
long framesTaken(int port)
{
    const std::string metrics = httpGet(port, "/metrics");
    long total = 0;
    for (size_t at = 0; (at = metrics.find("\norv_frames_total{", at)) != std::string::npos; ++at)
        total += std::atol(metrics.c_str() + metrics.find('}', at) + 1);
    return total;
}

// ---- the service ------------------------------------------------------------

struct Service {
    Child child;
    int port = 0;
    std::vector<std::string> ids;
};

std::string g_cli;
std::string g_tmp;

// Starts `orv-cli serve` on the modules (ids m0, m1, ...) and waits until
// every module is open.
Service startService(std::vector<std::unique_ptr<FakeModule>> &modules, const std::string &name,
                     const std::vector<std::string> &extra)
{
    Service s;
    s.port = freePort();
    const std::string tokenFile = g_tmp + "/token";
    if (FILE *f = std::fopen(tokenFile.c_str(), "w")) {
        std::fprintf(f, "%s\n", kToken);
        std::fclose(f);
        chmod(tokenFile.c_str(), 0600);
    }
    std::vector<std::string> args{g_cli,          "serve",    "--baud",
                                  "115200",       "--listen", "127.0.0.1:" + std::to_string(s.port),
                                  "--token-file", tokenFile};
    for (size_t i = 0; i < modules.size(); ++i) {
        s.ids.push_back("m" + std::to_string(i));
        args.push_back("--port");
        args.push_back(s.ids.back() + "=" + modules[i]->slavePath);
    }
    args.insert(args.end(), extra.begin(), extra.end());
    s.child = spawn(args, g_tmp + "/" + name + ".log");
    const Clock deadline = now() + 30000000000LL;
    for (size_t i = 0; i < s.ids.size();) {
        for (auto &m : modules)
            m->pump();
        const std::string a = httpGet(s.port, "/api/modules/" + s.ids[i]);
        if (a.find("\"state\":\"open\"") != std::string::npos) {
            ++i;
            continue;
        }
        if (now() > deadline)
            fail(name + ": the modules did not open within 30 s (see " + g_tmp + "/" + name +
                 ".log)");
        if (waitpid(s.child.pid, nullptr, WNOHANG) == s.child.pid)
            fail(name + " ended (see " + g_tmp + "/" + name + ".log)");
        usleep(20000);
    }
    return s;
}

// ---- viewers ----------------------------------------------------------------

struct Viewer {
    int fd = -1;
    std::string buffer;
    bool reading = true; // false: a stuck viewer, never read
    bool closed = false;
    long targets = 0;
    Clock kernelTime = 0;          // when the kernel took in the bytes last read
    bool pipe = false;             // the standard output of orv-cli watch, not a stream
    std::vector<Clock> areasTimes; // arrival of each areas record (pipes only)
};

// The event loop: the modules' masters and the viewers' sockets in one epoll
// set. Data pointers: modules tagged with the low bit.
class Loop
{
public:
    Loop() : ep(epoll_create1(0)) {}
    ~Loop()
    {
        for (Viewer &v : viewers)
            if (!v.closed)
                ::close(v.fd);
        ::close(ep);
    }

    void addModule(FakeModule *m)
    {
        epoll_event e{};
        e.events = EPOLLIN;
        e.data.u64 = (quint64(reinterpret_cast<quintptr>(m)) | 1);
        epoll_ctl(ep, EPOLL_CTL_ADD, m->fd(), &e);
    }

    // Opens n viewers of module id's event stream; stuck ones get a small
    // receive buffer and are never read.
    void addViewers(int port, const std::string &id, int n, bool reading = true)
    {
        viewers.reserve(viewers.size() + size_t(n) + 16);
        const std::string r = request("/api/modules/" + id + "/events", port);
        for (int i = 0; i < n; ++i) {
            const int fd = connectTo(port, true, reading ? 0 : 2048);
            if (fd < 0)
                fail("a viewer could not connect");
            if (reading) {
                int flags = SOF_TIMESTAMPING_RX_SOFTWARE | SOF_TIMESTAMPING_SOFTWARE;
                setsockopt(fd, SOL_SOCKET, SO_TIMESTAMPING, &flags, sizeof flags);
            }
            ::send(fd, r.data(), r.size(), MSG_NOSIGNAL);
            fcntl(fd, F_SETFL, O_NONBLOCK);
            Viewer v;
            v.fd = fd;
            v.reading = reading;
            viewers.push_back(std::move(v));
            epoll_event e{};
            e.events = reading ? EPOLLIN : EPOLLRDHUP;
            e.data.u64 = quint64(viewers.size() - 1) << 1;
            epoll_ctl(ep, EPOLL_CTL_ADD, fd, &e);
        }
    }

    // Lines of orv-cli watch's standard output, read as a viewer's.
    void addPipe(int fd)
    {
        Viewer v;
        v.fd = fd;
        v.pipe = true;
        viewers.push_back(std::move(v));
        epoll_event e{};
        e.events = EPOLLIN;
        e.data.u64 = quint64(viewers.size() - 1) << 1;
        epoll_ctl(ep, EPOLL_CTL_ADD, fd, &e);
    }

    // Serves everything until deadline. onTargets(viewer, seq, time) for each
    // targets event a viewer gets.
    template <typename F> void runUntil(Clock deadline, F onTargets)
    {
        epoll_event events[256];
        for (;;) {
            const Clock t = now();
            if (t >= deadline)
                return;
            const int timeout = int(std::min<Clock>((deadline - t) / 1000000 + 1, 50));
            const int n = epoll_wait(ep, events, 256, timeout);
            for (int i = 0; i < n; ++i) {
                const quint64 tag = events[i].data.u64;
                if (tag & 1) {
                    reinterpret_cast<FakeModule *>(quintptr(tag & ~quint64(1)))->pump();
                    continue;
                }
                Viewer &v = viewers[size_t(tag >> 1)];
                if (!v.reading) {
                    // Only a hang-up wakes a stuck viewer: the service closed it.
                    epoll_ctl(ep, EPOLL_CTL_DEL, v.fd, nullptr);
                    ::close(v.fd);
                    v.closed = true;
                    ++stuckClosed;
                    continue;
                }
                read(v, now(), onTargets);
            }
        }
    }

    std::vector<Viewer> viewers;
    int stuckClosed = 0;

private:
    template <typename F> void read(Viewer &v, Clock arrival, F &onTargets)
    {
        char chunk[16384];
        for (;;) {
            iovec io{chunk, sizeof chunk};
            char control[256];
            msghdr msg{};
            msg.msg_iov = &io;
            msg.msg_iovlen = 1;
            msg.msg_control = control;
            msg.msg_controllen = sizeof control;
            const ssize_t n = v.pipe ? ::read(v.fd, chunk, sizeof chunk) : ::recvmsg(v.fd, &msg, 0);
            for (cmsghdr *c = CMSG_FIRSTHDR(&msg); n > 0 && c; c = CMSG_NXTHDR(&msg, c))
                if (c->cmsg_level == SOL_SOCKET && c->cmsg_type == SCM_TIMESTAMPING) {
                    scm_timestamping ts;
                    std::memcpy(&ts, CMSG_DATA(c), sizeof ts);
                    v.kernelTime = Clock(ts.ts[0].tv_sec) * 1000000000LL + ts.ts[0].tv_nsec;
                }
            if (n == 0 || (n < 0 && errno != EAGAIN && errno != EINTR)) {
                epoll_ctl(ep, EPOLL_CTL_DEL, v.fd, nullptr);
                ::close(v.fd);
                v.closed = true;
                return;
            }
            if (n < 0)
                break;
            v.buffer.append(chunk, size_t(n));
        }
        size_t start = 0, end;
        while ((end = v.buffer.find('\n', start)) != std::string::npos) {
            v.buffer[end] = '\0';
            const char *line = v.buffer.c_str() + start;
            if ((v.pipe || std::strncmp(line, "data:", 5) == 0) &&
                std::strstr(line, "\"kind\":\"targets\"")) {
                ++v.targets;
                onTargets(v, seqOfRecord(line), arrival);
            } else if (v.pipe && std::strstr(line, "\"kind\":\"areas\"")) {
                v.areasTimes.push_back(arrival);
            }
            start = end + 1;
        }
        v.buffer.erase(0, start);
    }

    int ep;
};

// ---- figures ----------------------------------------------------------------

double percentile(std::vector<double> values, double p)
{
    if (values.empty())
        return NAN;
    std::sort(values.begin(), values.end());
    const size_t k = std::min(values.size() - 1, size_t(std::ceil(p / 100.0 * values.size())) - 1);
    return values[k];
}

double loadAverage()
{
    double l = 0;
    if (FILE *f = std::fopen("/proc/loadavg", "r")) {
        if (std::fscanf(f, "%lf", &l) != 1)
            l = 0;
        std::fclose(f);
    }
    return l;
}

struct Options {
    std::string mode;
    int viewers = 1;
    int frames = 300;
    int seconds = 30;
    int brokerPort = 0;
    int people = 3;
    double rate = 10;
};

// Writes numbered reports (targets + areas) to every module at opts.rate
// while serving the loop; returns the write times by seq.
struct Reporter {
    Reporter(std::vector<std::unique_ptr<FakeModule>> *modules, int people, double rate)
        : modules(modules), people(people), rate(rate)
    {
    }

    std::vector<std::unique_ptr<FakeModule>> *modules;
    int people;
    double rate;
    int seq = 0;
    std::map<int, Clock> written;      // by seq: the first module's frame
    std::map<int, Clock> writtenOther; // and the second's (orv-cli watch's)

    template <typename F> void run(Loop &loop, Clock until, F onTargets, bool numbered = true)
    {
        const Clock period = Clock(1e9 / rate);
        Clock next = now();
        while (now() < until) {
            loop.runUntil(std::min(next, until), onTargets);
            if (now() < next)
                continue;
            const QByteArray frame =
                numbered ? numberedReport(seq % 20000, people) : numberedReport(0, people);
            const QByteArray areas = areaFrame(false);
            std::vector<Clock> t;
            for (auto &m : *modules)
                t.push_back(m->write(frame));
            for (auto &m : *modules)
                m->write(areas);
            if (numbered) {
                written[seq % 20000] = t[0];
                if (t.size() > 1)
                    writtenOther[seq % 20000] = t[1];
            }
            ++seq;
            next += period;
        }
    }
};

void raiseFileLimit()
{
    rlimit r;
    getrlimit(RLIMIT_NOFILE, &r);
    r.rlim_cur = r.rlim_max;
    setrlimit(RLIMIT_NOFILE, &r);
}

// ---- modes ------------------------------------------------------------------

int latency(const Options &o)
{
    // The service on one module; orv-cli watch, the reference, on another
    // that gets the same frames at the same moment.
    std::vector<std::unique_ptr<FakeModule>> served, watched;
    served.push_back(std::make_unique<FakeModule>());
    watched.push_back(std::make_unique<FakeModule>());
    Service s = startService(served, "serve", {"--max-connections", "4096"});
    int watchOut = -1;
    Child watch = spawn(
        {g_cli, "watch", "--port", watched[0]->slavePath, "--baud", "115200", "--format", "jsonl"},
        g_tmp + "/watch.log", &watchOut);
    std::vector<std::unique_ptr<FakeModule>> modules;
    modules.push_back(std::move(served[0]));
    modules.push_back(std::move(watched[0]));
    Loop loop;
    for (auto &m : modules)
        loop.addModule(m.get());
    loop.addViewers(s.port, "m0", o.viewers);
    loop.addPipe(watchOut);
    Reporter rep(&modules, o.people, o.rate);
    std::vector<double> samples, kernelSamples, watchSamples;
    samples.reserve(size_t(o.viewers) * size_t(o.frames));
    bool measuring = false;
    auto onTargets = [&](Viewer &v, int seq, Clock arrival) {
        if (!measuring)
            return;
        const std::map<int, Clock> &written = v.pipe ? rep.writtenOther : rep.written;
        auto it = written.find(seq);
        if (it == written.end())
            return;
        if (v.pipe) {
            watchSamples.push_back((arrival - it->second) / 1e6);
            return;
        }
        samples.push_back((arrival - it->second) / 1e6);
        if (v.kernelTime > 0)
            kernelSamples.push_back((v.kernelTime - it->second) / 1e6);
    };
    // Warm-up: every viewer has its first events (and the service settled).
    rep.run(loop, now() + 2000000000LL, onTargets);
    rep.written.clear();
    rep.writtenOther.clear();
    measuring = true;
    const double load0 = loadAverage();
    const Clock c0 = cpuTime(s.child.pid), w0 = now();
    rep.run(loop, now() + Clock(o.frames / o.rate * 1e9), onTargets);
    const Clock c1 = cpuTime(s.child.pid), w1 = now();
    // The last frames' events still on their way.
    loop.runUntil(now() + 300000000LL, onTargets);
    const long expected = long(rep.written.size()) * o.viewers;
    int open = 0;
    for (const Viewer &v : loop.viewers)
        open += !v.closed && !v.pipe;
    std::printf("latency, %d viewer(s), %d people at %.0f reports/s, %zu frames: p50 %.3f ms, "
                "p99 %.3f ms, max %.3f ms; at the viewers' sockets (kernel receive time): p50 "
                "%.3f ms, p99 %.3f ms; %zu of %ld events (%d viewers still open); reference "
                "orv-cli watch (frame to its jsonl line, same frames): p50 %.3f ms, p99 %.3f ms, "
                "max %.3f ms (%zu lines); service CPU %.2f %% of a core; threads %ld; load %.1f\n",
                o.viewers, o.people, o.rate, rep.written.size(), percentile(samples, 50),
                percentile(samples, 99), percentile(samples, 100), percentile(kernelSamples, 50),
                percentile(kernelSamples, 99), samples.size(), expected, open,
                percentile(watchSamples, 50), percentile(watchSamples, 99),
                percentile(watchSamples, 100), watchSamples.size(), 100.0 * (c1 - c0) / (w1 - w0),
                statusField(s.child.pid, "Threads"), load0);
    stop(watch);
    stop(s.child);
    return 0;
}

int cpu(const Options &o)
{
    std::vector<std::unique_ptr<FakeModule>> served, watched;
    served.push_back(std::make_unique<FakeModule>());
    watched.push_back(std::make_unique<FakeModule>());
    Service s = startService(served, "serve", {});
    Child watch = spawn(
        {g_cli, "watch", "--port", watched[0]->slavePath, "--baud", "115200", "--format", "jsonl"},
        "/dev/null");
    std::vector<std::unique_ptr<FakeModule>> both;
    both.push_back(std::move(served[0]));
    both.push_back(std::move(watched[0]));
    Loop loop;
    for (auto &m : both)
        loop.addModule(m.get());
    Reporter rep{&both, o.people, o.rate};
    auto none = [](Viewer &, int, Clock) {};
    for (int phase : {0, 1, 100}) {
        loop.addViewers(s.port, "m0", phase - int(loop.viewers.size()));
        rep.run(loop, now() + 3000000000LL, none); // settle
        long before = 0;
        for (const Viewer &v : loop.viewers)
            before += v.targets;
        const double load0 = loadAverage();
        const std::map<std::string, Clock> threads0 = threadTimes(s.child.pid);
        const Clock cs0 = cpuTime(s.child.pid), cw0 = cpuTime(watch.pid), w0 = now();
        rep.run(loop, now() + Clock(o.seconds) * 1000000000LL, none);
        const Clock cs1 = cpuTime(s.child.pid), cw1 = cpuTime(watch.pid), w1 = now();
        std::string split;
        for (const auto &t : threadTimes(s.child.pid)) {
            const auto before = threads0.find(t.first);
            const Clock spent = t.second - (before == threads0.end() ? 0 : before->second);
            char part[128];
            std::snprintf(part, sizeof part, "%s%s %.3f %%", split.empty() ? "" : ", ",
                          t.first.c_str(), 100.0 * spent / (w1 - w0));
            split += part;
        }
        long after = 0;
        for (const Viewer &v : loop.viewers)
            after += v.targets;
        const double service = 100.0 * (cs1 - cs0) / (w1 - w0);
        const double watching = 100.0 * (cw1 - cw0) / (w1 - w0);
        std::printf("cpu, %d people at %.0f reports/s, %d s, %d viewer(s): service %.3f %% of a "
                    "core, orv-cli watch %.3f %% (ratio %.2f); viewers got %.1f targets events/s "
                    "each; service threads: %s; load %.1f\n",
                    o.people, o.rate, o.seconds, phase, service, watching, service / watching,
                    phase ? double(after - before) / phase / ((w1 - w0) / 1e9) : 0.0, split.c_str(),
                    load0);
        std::fflush(stdout);
    }
    stop(watch);
    stop(s.child);
    return 0;
}

int memory(const Options &o)
{
    std::vector<std::unique_ptr<FakeModule>> modules;
    modules.push_back(std::make_unique<FakeModule>());
    Service s = startService(modules, "serve", {"--max-connections", "4096"});
    Loop loop;
    loop.addModule(modules[0].get());
    Reporter rep{&modules, o.people, o.rate};
    auto none = [](Viewer &, int, Clock) {};
    const pid_t pid = s.child.pid;
    rep.run(loop, now() + 3000000000LL, none);
    const long none0 = statusField(pid, "VmRSS");
    loop.addViewers(s.port, "m0", 100);
    rep.run(loop, now() + 5000000000LL, none);
    const long rss100 = statusField(pid, "VmRSS");
    loop.addViewers(s.port, "m0", 900);
    rep.run(loop, now() + 5000000000LL, none);
    const long rss1000 = statusField(pid, "VmRSS");
    std::printf("memory: RSS %ld kB with no viewer, %ld kB with 100 viewers, %ld kB with 1000 "
                "viewers: %.1f KiB per further viewer (RssAnon %ld kB, threads %ld)\n",
                none0, rss100, rss1000, (rss1000 - rss100) / 900.0, statusField(pid, "RssAnon"),
                statusField(pid, "Threads"));
    std::fflush(stdout);
    stop(s.child);
    return 0;
}

int stuckMemory(const Options &o)
{
    std::vector<std::unique_ptr<FakeModule>> modules;
    modules.push_back(std::make_unique<FakeModule>());
    Service s = startService(modules, "serve", {});
    Loop loop;
    loop.addModule(modules[0].get());
    Reporter rep(&modules, o.people, o.rate);
    auto none = [](Viewer &, int, Clock) {};
    const pid_t pid = s.child.pid;
    // 100 reading viewers, and a new stuck viewer every 30 s (each stays
    // connected on this side and never reads).
    loop.addViewers(s.port, "m0", 100);
    int stuckOpened = 0;
    Clock nextStuck = 0;
    auto keepStuck = [&]() {
        if (now() < nextStuck)
            return;
        loop.addViewers(s.port, "m0", 1, false);
        ++stuckOpened;
        nextStuck = now() + 30000000000LL;
    };
    keepStuck();
    // The first minute fills what is filled once (buffers, allocator pools).
    const Clock warm = now() + 60000000000LL;
    while (now() < warm) {
        rep.run(loop, now() + 1000000000LL, none);
        keepStuck();
    }
    const long start = statusField(pid, "VmRSS");
    const Clock end = now() + Clock(o.seconds) * 1000000000LL;
    long peak = start;
    while (now() < end) {
        rep.run(loop, now() + 1000000000LL, none);
        keepStuck();
        peak = std::max(peak, statusField(pid, "VmRSS"));
    }
    const long last = statusField(pid, "VmRSS");
    // What the service says of its viewers, its open sockets, and the
    // system's orphaned TCP sockets (closed by their owner, data unsent).
    const std::string metrics = httpGet(s.port, "/metrics");
    auto metric = [&](const char *name) {
        const size_t at = metrics.find(std::string("\n") + name + "{");
        return at == std::string::npos ? -1L
                                       : std::atol(metrics.c_str() + metrics.find('}', at) + 1);
    };
    int sockets = 0;
    const std::string fdDir = "/proc/" + std::to_string(pid) + "/fd";
    if (DIR *d = opendir(fdDir.c_str())) {
        while (dirent *e = readdir(d)) {
            char target[64] = {};
            if (readlink((fdDir + "/" + e->d_name).c_str(), target, sizeof target - 1) > 0 &&
                std::strncmp(target, "socket:", 7) == 0)
                ++sockets;
        }
        closedir(d);
    }
    long orphans = -1;
    if (FILE *f = std::fopen("/proc/net/sockstat", "r")) {
        char line[256];
        while (std::fgets(line, sizeof line, f))
            if (const char *o = std::strstr(line, "orphan "))
                if (std::strncmp(line, "TCP:", 4) == 0)
                    orphans = std::atol(o + 7);
        std::fclose(f);
    }
    std::printf("memory, stuck viewers, %d s after a minute's warm-up, 100 reading viewers and a "
                "new stuck viewer every 30 s: RSS %ld -> %ld kB (peak %ld), growth %ld kB, %.0f "
                "kB per 10 minutes at that pace; %d stuck viewers opened, %d saw the connection "
                "end; the service counts %ld viewers, %ld dropped events, holds %d sockets; "
                "orphaned TCP sockets on the system: %ld\n",
                o.seconds, start, last, peak, last - start, (last - start) * 600.0 / o.seconds,
                stuckOpened, loop.stuckClosed, metric("orv_viewers"),
                metric("orv_dropped_events_total"), sockets, orphans);
    stop(s.child);
    return 0;
}

// ---- MQTT -------------------------------------------------------------------

// A subscriber on its own libmosquitto thread; every message timestamped.
class Subscriber
{
public:
    struct Message {
        std::string topic, payload;
        bool retained;
        Clock time;
    };

    Subscriber(int port, const std::string &filter)
    {
        mosquitto_lib_init();
        client = mosquitto_new(("serve-perf-" + std::to_string(getpid())).c_str(), true, this);
        mosquitto_message_callback_set(
            client, [](mosquitto *, void *self, const mosquitto_message *m) {
                const Clock t = now();
                auto *s = static_cast<Subscriber *>(self);
                std::lock_guard<std::mutex> lock(s->mutex);
                s->messages.push_back(
                    {m->topic,
                     std::string(static_cast<const char *>(m->payload), size_t(m->payloadlen)),
                     m->retain, t});
            });
        if (mosquitto_connect(client, "127.0.0.1", port, 30) != MOSQ_ERR_SUCCESS)
            fail("cannot reach the broker on port " + std::to_string(port));
        mosquitto_subscribe(client, nullptr, filter.c_str(), 1);
        mosquitto_loop_start(client);
    }
    ~Subscriber()
    {
        mosquitto_disconnect(client);
        mosquitto_loop_stop(client, false);
        mosquitto_destroy(client);
        mosquitto_lib_cleanup();
    }
    std::vector<Message> take()
    {
        std::lock_guard<std::mutex> lock(mutex);
        std::vector<Message> out;
        out.swap(messages);
        return out;
    }

private:
    mosquitto *client = nullptr;
    std::mutex mutex;
    std::vector<Message> messages;
};

std::vector<std::string> mqttArgs(const Options &o)
{
    return {"--mqtt", "mqtt://127.0.0.1:" + std::to_string(o.brokerPort), "--mqtt-client-id",
            "perf" + std::to_string(getpid())};
}

int mqttLatency(const Options &o)
{
    // The service with --mqtt on one module; orv-cli watch, the reference,
    // on another that gets the same frames at the same moment.
    std::vector<std::unique_ptr<FakeModule>> served, watched;
    served.push_back(std::make_unique<FakeModule>());
    watched.push_back(std::make_unique<FakeModule>());
    served[0]->sim.presetArea(1, 0, QRectF(QPointF(-1, 1), QPointF(1, 3)));
    Subscriber sub(o.brokerPort, "orv/m0/area/1/occupancy");
    Service s = startService(served, "serve-mqtt", mqttArgs(o));
    int watchOut = -1;
    Child watch = spawn(
        {g_cli, "watch", "--port", watched[0]->slavePath, "--baud", "115200", "--format", "jsonl"},
        g_tmp + "/watch.log", &watchOut);
    std::vector<std::unique_ptr<FakeModule>> modules;
    modules.push_back(std::move(served[0]));
    modules.push_back(std::move(watched[0]));
    Loop loop;
    for (auto &m : modules)
        loop.addModule(m.get());
    loop.addPipe(watchOut);
    Viewer &watchLines = loop.viewers.back();
    auto none = [](Viewer &, int, Clock) {};
    // Area 1 empty, then wait for the broker's state to settle.
    for (auto &m : modules)
        m->write(areaFrame(false));
    loop.runUntil(now() + 3000000000LL, none);
    sub.take();
    watchLines.areasTimes.clear();
    std::vector<Clock> written, writtenOther;
    const Clock period = Clock(1e9 / o.rate);
    Clock next = now();
    for (int k = 0; k < o.frames; ++k) {
        loop.runUntil(next, none);
        const bool occupied = k % 2 == 0;
        QVector<QPointF> people;
        if (occupied)
            people.append(QPointF(0, 2)); // inside area 1
        const QByteArray report = modules[0]->sim.targetReport(people);
        for (auto &m : modules)
            m->write(report);
        written.push_back(modules[0]->write(areaFrame(occupied)));
        writtenOther.push_back(modules[1]->write(areaFrame(occupied)));
        next += period;
    }
    loop.runUntil(now() + 500000000LL, none);
    const std::vector<Subscriber::Message> got = sub.take();
    std::vector<double> samples, watchSamples;
    size_t k = 0;
    int wrong = 0;
    for (const Subscriber::Message &m : got) {
        if (k >= written.size())
            break;
        if (m.payload != (k % 2 == 0 ? "ON" : "OFF")) {
            ++wrong;
            continue;
        }
        samples.push_back((m.time - written[k]) / 1e6);
        ++k;
    }
    for (size_t i = 0; i < watchLines.areasTimes.size() && i < writtenOther.size(); ++i)
        watchSamples.push_back((watchLines.areasTimes[i] - writtenOther[i]) / 1e6);
    std::printf("mqtt occupancy latency, %zu changes at %.0f/s: p50 %.3f ms, p99 %.3f ms, max "
                "%.3f ms; %zu messages, %d out of order; reference orv-cli watch (code-8 frame to "
                "its jsonl line): p50 %.3f ms, p99 %.3f ms, max %.3f ms (%zu lines); load %.1f\n",
                written.size(), o.rate, percentile(samples, 50), percentile(samples, 99),
                percentile(samples, 100), got.size(), wrong, percentile(watchSamples, 50),
                percentile(watchSamples, 99), percentile(watchSamples, 100), watchSamples.size(),
                loadAverage());
    stop(watch);
    stop(s.child);
    return 0;
}

int mqttCount(const Options &o)
{
    std::vector<std::unique_ptr<FakeModule>> modules;
    modules.push_back(std::make_unique<FakeModule>());
    modules[0]->sim.presetArea(1, 0, QRectF(QPointF(-1, 1), QPointF(1, 3)));
    Subscriber sub(o.brokerPort, "orv/#");
    Service s = startService(modules, "serve-mqtt", mqttArgs(o));
    Loop loop;
    loop.addModule(modules[0].get());
    Reporter rep{&modules, o.people, o.rate};
    auto none = [](Viewer &, int, Clock) {};
    // People standing still: the same report every time. First the start's
    // retained values go by.
    rep.run(loop, now() + 5000000000LL, none, false);
    sub.take();
    rep.run(loop, now() + Clock(o.seconds) * 1000000000LL, none, false);
    const std::vector<Subscriber::Message> got = sub.take();
    std::map<std::string, int> byTopic;
    for (const Subscriber::Message &m : got)
        ++byTopic[m.topic];
    std::printf("mqtt messages, %d people standing still at %.0f reports/s, default targets rate, "
                "%d s: %zu messages, %.1f per minute (",
                o.people, o.rate, o.seconds, got.size(), got.size() * 60.0 / o.seconds);
    bool first = true;
    for (const auto &t : byTopic) {
        std::printf("%s%s %d", first ? "" : ", ", t.first.c_str(), t.second);
        first = false;
    }
    std::printf(")\n");
    stop(s.child);
    return 0;
}

int mqttCpu(const Options &o)
{
    std::vector<std::unique_ptr<FakeModule>> plain, bridged;
    for (int i = 0; i < 10; ++i) {
        plain.push_back(std::make_unique<FakeModule>());
        bridged.push_back(std::make_unique<FakeModule>());
    }
    Service a = startService(plain, "serve-plain", {});
    Service b = startService(bridged, "serve-mqtt", mqttArgs(o));
    std::vector<std::unique_ptr<FakeModule>> all;
    for (auto *list : {&plain, &bridged})
        for (auto &m : *list)
            all.push_back(std::move(m));
    Loop loop;
    for (auto &m : all)
        loop.addModule(m.get());
    Reporter rep{&all, o.people, o.rate};
    auto none = [](Viewer &, int, Clock) {};
    rep.run(loop, now() + 3000000000LL, none);
    const double load0 = loadAverage();
    const long fa0 = framesTaken(a.port), fb0 = framesTaken(b.port);
    const Clock a0 = cpuTime(a.child.pid), b0 = cpuTime(b.child.pid), w0 = now();
    rep.run(loop, now() + Clock(o.seconds) * 1000000000LL, none);
    const Clock a1 = cpuTime(a.child.pid), b1 = cpuTime(b.child.pid), w1 = now();
    const long fa1 = framesTaken(a.port), fb1 = framesTaken(b.port);
    const double pa = 100.0 * (a1 - a0) / (w1 - w0), pb = 100.0 * (b1 - b0) / (w1 - w0);
    std::printf("mqtt cpu, 10 modules, %d people at %.0f reports/s, %d s: without --mqtt %.3f %% "
                "of a core, with --mqtt %.3f %%: %+.3f %% of a core; frames taken per second "
                "(all modules): %.1f without, %.1f with; load %.1f\n",
                o.people, o.rate, o.seconds, pa, pb, pb - pa, (fa1 - fa0) / ((w1 - w0) / 1e9),
                (fb1 - fb0) / ((w1 - w0) / 1e9), load0);
    stop(a.child);
    stop(b.child);
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    Options o;
    if (argc < 2)
        fail("usage: serve-perf latency|cpu|memory|stuck|mqtt-latency|mqtt-count|mqtt-cpu --cli "
             "PATH "
             "[--viewers N] [--frames F] [--seconds S] [--rate HZ] [--people N] [--broker PORT]");
    o.mode = argv[1];
    for (int i = 2; i + 1 < argc; i += 2) {
        const std::string k = argv[i], v = argv[i + 1];
        if (k == "--cli")
            g_cli = v;
        else if (k == "--viewers")
            o.viewers = std::stoi(v);
        else if (k == "--frames")
            o.frames = std::stoi(v);
        else if (k == "--seconds")
            o.seconds = std::stoi(v);
        else if (k == "--rate")
            o.rate = std::stod(v);
        else if (k == "--people")
            o.people = std::stoi(v);
        else if (k == "--broker")
            o.brokerPort = std::stoi(v);
        else
            fail("unknown option " + k);
    }
    if (g_cli.empty())
        fail("--cli PATH (orv-cli) is needed");
    signal(SIGPIPE, SIG_IGN);
    raiseFileLimit();
    char tmpl[] = "/tmp/serve-perf-XXXXXX";
    if (!mkdtemp(tmpl))
        fail("no temporary directory");
    g_tmp = tmpl;
    if (o.mode == "latency")
        return latency(o);
    if (o.mode == "cpu")
        return cpu(o);
    if (o.mode == "memory")
        return memory(o);
    if (o.mode == "stuck")
        return stuckMemory(o);
    if (o.mode.rfind("mqtt", 0) == 0 && o.brokerPort <= 0)
        fail("--broker PORT is needed");
    if (o.mode == "mqtt-latency")
        return mqttLatency(o);
    if (o.mode == "mqtt-count")
        return mqttCount(o);
    if (o.mode == "mqtt-cpu")
        return mqttCpu(o);
    fail("unknown mode " + o.mode);
}
