// Sound projects and the about box.
#include "project/projectcommands.h"
#include "ui/aboutdialog.h"
#include "ui/mainwindow.h"

namespace klangor {

void Form1::setupProjects() {}

void Form1::Offnen_Click() {}

void Form1::Speichern_Click() {}

void Form1::Speichernunter_Click() {}

void Form1::Info_Click() {}

} // namespace klangor
