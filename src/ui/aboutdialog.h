#pragma once

#include <QDialog>

namespace klangor {

class frmAbout : public QDialog
{
    Q_OBJECT
};

} // namespace klangor
