// The settings of the fast back end, from the text that a host passes with the name of the implementation.
//   FastSettings s = FastSettings::parse("num_threads=4, spin_us=0");
// They change speed and memory, never results. docs/fast.md lists their ranges.
#pragma once

struct FastSettings {
    int numThreads = 1;  // that one run uses
    int spinUs = 20;     // microseconds that a worker waits for the next task before it sleeps
    int arenas = 1;      // runs at the same time that allocate nothing

    // Null gives the defaults. Throws std::invalid_argument for an unknown key, for one that is given twice, and for a
    // value that is not a number in the setting's range.
    static FastSettings parse(const char* cfg);
};
