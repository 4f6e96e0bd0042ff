#pragma once

#include "common/result.h"

#include <QList>
#include <QString>

namespace klangor {

// A USB-serial adapter as udev names it under serial/by-id.
struct SerialDevice
{
    QString name;   // the by-id name, e.g. usb-FTDI_FT232R_USB_UART_A1B2-if00-port0
    QString path;   // the by-id link itself: stays right when the adapter is plugged in again
    QString target; // the device it leads to, e.g. /dev/ttyUSB0

    friend bool operator==(const SerialDevice &, const SerialDevice &) = default;
};

// The adapters present under deviceRoot (normally "/dev"), sorted by name.
QList<SerialDevice> listSerialDevices(const QString &deviceRoot);

// The adapter that "Com<port>" leads to: the one chosen by name, or with none chosen the only
// one present. The message tells what is missing and what to do.
Result<SerialDevice> deviceForPort(const QList<SerialDevice> &present, int port,
                                   const QString &chosenName);

// Whether this user may open the device for reading and writing; the message says how to get
// the right when the device's group is one the user is not in.
Status checkDeviceAccess(const SerialDevice &device);

} // namespace klangor
