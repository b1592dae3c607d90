// What a conversion did, for people and as JSON.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "convert/conversion.h"

namespace convert {

// "node 'pool' (MaxUnpool): why; what to do"
std::string describe(const Finding& finding);

// The report on a model that is refused as a whole.
std::string failureReport(const std::string& in, const std::string& out, const std::string& error);

class Report {
public:
    Report(const std::string& in, const std::string& out, const Conversion& conversion);
    void setCheck(const CheckResult& result);
    std::string text() const;

private:
    nlohmann::ordered_json json_;
};

}  // namespace convert
