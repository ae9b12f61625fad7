#pragma once
// The processor gives way to the capture process: at start it lowers its own CPU priority
// and I/O class, and every thread and copier it starts afterwards inherits them.

// Nice value and I/O class that the processor takes.
constexpr int kLoweredNice = 10;
// I/O scheduling classes of the kernel (ioprio_set).
constexpr int kIoClassIdle = 3;

// Lowers every thread of the process to nice kLoweredNice (never raising a nicer one) and
// to the idle I/O class, unless the registry value "LowerPriority" of the processor's key is 0.
// A change the system refuses is traced and said on the journal; the run goes on.
void LowerProcessPriority();
