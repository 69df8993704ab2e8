// The figures of bench_time, by file.
#ifndef BENCH_FIGURES_H
#define BENCH_FIGURES_H

// Call first, before the process has threads; keeps the server until the process ends.
void RegisterCalls();
void RegisterXml();
void RegisterDictionary();
void RegisterValues();

#endif
