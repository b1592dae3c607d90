#include "nolk/model/Finding.h"

#include "nolk/words.h"

std::string describe(const Finding& finding) {
    return finding.place + " at byte " + std::to_string(finding.offset) +
           (finding.isError ? ": error: " : ": warning: ") + printable(finding.text);
}
