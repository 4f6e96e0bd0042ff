#pragma once

#include "support/wavwriter.h"

#include <gtest/gtest.h>
#include <QByteArray>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QString>
#include <QTemporaryDir>

namespace klangor::test {

// Sets an environment variable for the tools started meanwhile; the old value comes back.
class ScopedEnv
{
public:
    ScopedEnv(const char *name, const QByteArray &value)
        : m_name(name), m_had(qEnvironmentVariableIsSet(name)), m_old(qgetenv(name))
    {
        qputenv(name, value);
    }
    ~ScopedEnv()
    {
        if (m_had)
            qputenv(m_name, m_old);
        else
            qunsetenv(m_name);
    }
    ScopedEnv(const ScopedEnv &) = delete;
    ScopedEnv &operator=(const ScopedEnv &) = delete;

private:
    const char *m_name;
    bool m_had;
    QByteArray m_old;
};

// A program folder with the stand-in tools copied in from the build and a valid cvlist.dat.
class StandInFolder
{
public:
    StandInFolder()
    {
        copyFromBin(QStringLiteral("sndburn.exe"));
        copyFromBin(QStringLiteral("cvburn.exe"));
        writeFile(path(QStringLiteral("cvlist.dat")), "; Test\r\n1=3\r\n29=6\r\n");
    }

    QString folder() const { return m_dir.path(); }
    QString path(const QString &name) const { return m_dir.filePath(name); }
    QByteArray log() const { return readFile(path(QStringLiteral("standin.log"))); }

    // The program folder of the build; the test executable lies in it too, which helps when
    // the variable does not come through.
    static QString binDir()
    {
        const QString dir = qEnvironmentVariable("KLANGOR_BIN_DIR");
        return dir.isEmpty() ? QCoreApplication::applicationDirPath() : dir;
    }

    void copyFromBin(const QString &name)
    {
        const QString source = QDir(binDir()).filePath(name);
        ASSERT_TRUE(QFile::exists(source)) << qPrintable(source) << " (KLANGOR_BIN_DIR)";
        QFile::remove(path(name));
        ASSERT_TRUE(QFile::copy(source, path(name)));
        QFile::setPermissions(path(name), QFile::permissions(source) | QFile::ExeOwner);
    }

private:
    QTemporaryDir m_dir;
};

} // namespace klangor::test
