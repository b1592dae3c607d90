#include "compareLevels.h"

#include "compare.h"
#include "math/chooseProduct.h"

void compareLevels(const std::string& name, const std::function<void()>& run) {
    const auto runAt = [run](const Product* level) {
        return [run, level] {
            forceProduct(level);
            run();
            forceProduct(nullptr);
        };
    };
    const Product* const oldest = supportedProducts().front();
    for (const Product* level : supportedProducts())
        if (level != oldest)
            compare(name + ", " + level->name + " / " + oldest->name, {runAt(level), nullptr}, {runAt(oldest), nullptr},
                    0);
}
