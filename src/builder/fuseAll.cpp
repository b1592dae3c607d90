#include "builder/fuseAll.h"

#include <algorithm>
#include <iterator>
#include <unordered_set>

std::vector<std::unique_ptr<LayerFactory>> fuseAll(std::vector<std::unique_ptr<LayerFactory>>& factories) {
    std::unordered_set<const LayerFactory*> gone;
    const auto isGone = [&gone](const auto& factory) { return gone.count(factory.get()) > 0; };
    for (const auto& factory : factories)
        while (LayerFactory* const absorbed = isGone(factory) ? nullptr : factory->fuse()) gone.insert(absorbed);

    const auto rest = std::stable_partition(factories.begin(), factories.end(),
                                            [&isGone](const auto& factory) { return !isGone(factory); });
    std::vector<std::unique_ptr<LayerFactory>> absorbed(std::make_move_iterator(rest),
                                                        std::make_move_iterator(factories.end()));
    factories.erase(rest, factories.end());
    return absorbed;
}
