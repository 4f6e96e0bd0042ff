#pragma once

#include <QString>

namespace klangor {

// Starts outside programs that run on their own (the system information tool).
class ProgramLauncher
{
public:
    virtual ~ProgramLauncher() = default;
    virtual bool fileExists(const QString &path) = 0;
    // Starts the program in a normal, focused window; false when it cannot be started.
    virtual bool startDetached(const QString &program) = 0;
};

class SystemProgramLauncher final : public ProgramLauncher
{
public:
    bool fileExists(const QString &path) override;
    bool startDetached(const QString &program) override;
};

} // namespace klangor
