// Decoder programming: the run of the external tool, its cancel and the progress bar.
#include "programming/programmingrun.h"
#include "ui/mainwindow.h"

namespace klangor {

void Form1::setupProgramming() {}

void Form1::Command1_Click() {}

void Form1::Abbrechen_Click() {}

void Form1::Timer1_Timer() {}

} // namespace klangor
