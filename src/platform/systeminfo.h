#pragma once

#include <QString>

namespace klangor {

// Starts outside programs that run on their own, such as the system information program.
class ProgramLauncher
{
public:
    virtual ~ProgramLauncher() = default;
    // Starts the installed program of that name, found on the PATH, in a window of its own;
    // false when there is none or it does not start.
    virtual bool startInstalled(const QString &name) = 0;
};

class SystemProgramLauncher final : public ProgramLauncher
{
public:
    bool startInstalled(const QString &name) override;
};

// Starts the first installed of the usual desktops' system information programs; false when
// none is installed or none would start.
bool startSystemInfo(ProgramLauncher &launcher);

} // namespace klangor
