#pragma once

#include "platform/messagebox.h"
#include "platform/programlauncher.h"
#include "platform/registry.h"

#include <QString>

namespace klangor {

// The registry query buffer: longer values cannot be read.
inline constexpr int RegistryValueBufferSize = 1024;

// Reads a REG_SZ or REG_DWORD value into keyVal. false (and keyVal "") when the key or value
// cannot be read; a value of another type leaves keyVal as it was but still counts as read.
bool GetKeyValue(Registry &registry, RegistryRoot keyRoot, const QString &keyName,
                 const QString &subKeyRef, QString &keyVal);

// Finds the system information tool in the registry and starts it. false when it could not
// be found or started; the caller then shows sysInfoUnavailableMessage(). A missing registry
// or launcher counts as not found.
bool StartSysInfo(Registry *registry, ProgramLauncher *launcher);

UserMessage sysInfoUnavailableMessage();

} // namespace klangor
