#include "tools/radar-sim/portlink.h"

#include <QFile>

#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

QString linkTarget(const QByteArray &path)
{
    char buffer[4096];
    const ssize_t n = ::readlink(path.constData(), buffer, sizeof buffer - 1);
    return n < 0 ? QString() : QFile::decodeName(QByteArray(buffer, int(n)));
}

} // namespace

bool PortLink::create(const QString &linkPath, const QString &target, QString *error)
{
    remove();
    const QByteArray where = QFile::encodeName(linkPath);
    struct stat st;
    if (::lstat(where.constData(), &st) == 0 && !S_ISLNK(st.st_mode)) {
        *error = QString("--link: %1 exists and is not a symbolic link").arg(linkPath);
        return false;
    }
    // Made under a name of its own first and renamed over the old link, so
    // the path never goes missing between two runs' links.
    const QByteArray fresh = where + ".radar-sim-" + QByteArray::number(qint64(::getpid()));
    ::unlink(fresh.constData());
    if (::symlink(QFile::encodeName(target).constData(), fresh.constData()) != 0 ||
        ::rename(fresh.constData(), where.constData()) != 0) {
        *error = QString("--link: cannot make %1 point to %2: %3")
                     .arg(linkPath, target, QString::fromLocal8Bit(std::strerror(errno)));
        ::unlink(fresh.constData());
        return false;
    }
    path = linkPath;
    pointsTo = target;
    return true;
}

void PortLink::remove()
{
    if (path.isEmpty())
        return;
    const QByteArray where = QFile::encodeName(path);
    if (linkTarget(where) == pointsTo)
        ::unlink(where.constData());
    path.clear();
    pointsTo.clear();
}
