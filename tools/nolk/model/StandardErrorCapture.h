// Keeps what is written to standard error while it lives, so that a failure inside the library becomes part of one
// message.
//   StandardErrorCapture quiet;  load();  throw std::runtime_error(path + ": " + quiet.take());
// What nobody takes is dropped, unless the process exits meanwhile: then it is written after all. One at a time.
#pragma once

#include <string>

class StandardErrorCapture {
public:
    // Throws std::system_error when there is no memory for it.
    StandardErrorCapture();
    ~StandardErrorCapture();
    StandardErrorCapture(const StandardErrorCapture&) = delete;
    StandardErrorCapture& operator=(const StandardErrorCapture&) = delete;

    // What has been written since the last call, as one line without its break: lines are joined by "; ".
    std::string take();

private:
    static void writeAtExit();
    void restore();

    int memory_;  // what is captured
    int saved_;   // standard error
};
