#pragma once
// The entry routine of the log processor.
#include <functional>

class frmProcessLogs;
class IProcessorView;

// Reads the command line (AppGlobal::CommandLine) and the registry, installs the crash
// filter, makes sure no other copy runs, and loads the main form. Needs a Qt application
// object. True when the form was loaded: the program then runs its event loop until
// the form unloads. False when another copy runs (the process should just end).
bool Main();

// The main form, once Main has created it (null before, and in a second copy).
frmProcessLogs* MainForm();

// A window for the form: called by Main right before the form loads. Not set (or
// returning null): the run is headless.
void SetViewFactory(std::function<IProcessorView*(frmProcessLogs&)> fnFactory);

// Ends the run: deletes the form (after it has unloaded).
void ReleaseMainForm();
