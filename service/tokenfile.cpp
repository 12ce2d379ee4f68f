#include "service/tokenfile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>
#include <QSaveFile>

namespace TokenFile
{

QString defaultPath()
{
    const QString systemd = qEnvironmentVariable("STATE_DIRECTORY").section(':', 0, 0);
    if (!systemd.isEmpty())
        return systemd + QStringLiteral("/serve-token");
    QString base = qEnvironmentVariable("XDG_STATE_HOME");
    if (base.isEmpty() || !QDir::isAbsolutePath(base))
        base = QDir::homePath() + QStringLiteral("/.local/state");
    return base + QStringLiteral("/orv-tool/serve-token");
}

QByteArray generate()
{
    quint32 words[8];
    QRandomGenerator::system()->fillRange(words);
    return QByteArray(reinterpret_cast<const char *>(words), sizeof words).toHex();
}

bool isUsable(const QByteArray &token)
{
    if (token.size() < 16 || token.size() > 256)
        return false;
    for (char c : token)
        if (c <= ' ' || c > '~' || c == ';' || c == ',' || c == '"' || c == '\\')
            return false;
    return true;
}

bool loadOrCreate(const QString &path, QByteArray *token, bool *created, QString *error)
{
    QFile existing(path);
    if (existing.exists()) {
        if (!existing.open(QIODevice::ReadOnly)) {
            *error = QString("cannot read the token file %1: %2").arg(path, existing.errorString());
            return false;
        }
        const QByteArray text = existing.read(4096).trimmed();
        if (!isUsable(text)) {
            *error = QString("the token file %1 holds no usable token (16..256 printable "
                             "characters on one line); remove it to have a new one made")
                         .arg(path);
            return false;
        }
        *token = text;
        *created = false;
        return true;
    }

    const QString dir = QFileInfo(path).absolutePath();
    if (!QDir(dir).exists()) {
        if (!QDir().mkpath(dir)) {
            *error = QString("cannot create the directory %1 for the token file").arg(dir);
            return false;
        }
        QFile::setPermissions(dir, QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                       QFileDevice::ExeOwner);
    }
    const QByteArray fresh = generate();
    QSaveFile file(path);
    // Owner only, before the secret is written.
    if (!file.open(QIODevice::WriteOnly) ||
        !file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner) ||
        file.write(fresh + '\n') != fresh.size() + 1 || !file.commit()) {
        *error = QString("cannot write the token file %1: %2").arg(path, file.errorString());
        return false;
    }
    *token = fresh;
    *created = true;
    return true;
}

} // namespace TokenFile
