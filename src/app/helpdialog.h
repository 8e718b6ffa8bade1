#pragma once

class QWidget;

// Opens the user guide in its own non-modal window (several may be open at once; each
// frees itself when closed) and returns at once.
void showHelpDialog(QWidget* parent);
