#pragma once

#include "support/wavwriter.h"

#include <gtest/gtest.h>
#include <optional>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

namespace klangor::test {

// Sets an environment variable for the tools started meanwhile; the old value comes back.
struct ScopedEnv
{
    ScopedEnv(const char *name, const QByteArray &value)
        : m_name(name),
          m_old(qEnvironmentVariableIsSet(name) ? std::optional(qgetenv(name)) : std::nullopt)
    {
        qputenv(name, value);
    }
    ~ScopedEnv() { m_old ? qputenv(m_name, *m_old) : qunsetenv(m_name); }
    Q_DISABLE_COPY(ScopedEnv)
    const char *m_name;
    std::optional<QByteArray> m_old;
};

// A program folder with the stand-in tools copied in from the build and a valid cvlist.dat.
struct StandInFolder
{
    StandInFolder()
    {
        copyFromBin(QStringLiteral("sndburn.exe"));
        copyFromBin(QStringLiteral("cvburn.exe"));
        writeFile(path(QStringLiteral("cvlist.dat")), "; Test\r\n1=3\r\n29=6\r\n");
    }

    QString folder() const { return m_dir.path(); }
    QString path(const QString &name) const { return m_dir.filePath(name); }
    QByteArray log() const { return readFile(path(QStringLiteral("standin.log"))); }

    // In the build's program folder, where the test executables lie too.
    static QString binPath(const QString &name)
    {
        return QDir(QCoreApplication::applicationDirPath()).filePath(name);
    }
    void copyFromBin(const QString &name, const QString &as = {})
    {
        const QString source = binPath(name), target = path(as.isEmpty() ? name : as);
        QFile::remove(target);
        ASSERT_TRUE(QFile::copy(source, target)) << qPrintable(source);
        QFile::setPermissions(target, QFile::permissions(source) | QFile::ExeOwner);
    }

    QTemporaryDir m_dir;
};

} // namespace klangor::test
