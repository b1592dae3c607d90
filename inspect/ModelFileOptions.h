// What a model file looks like, apart from its network.
#pragma once

#include <vector>

struct HeadInfo {
    int key = 0;                      // any 16-bit number but 0
    std::vector<unsigned char> data;  // at most 32767 bytes
};

struct ModelFileOptions {
    int version = 4;                 // 1 to 4
    bool lossy = false;              // version 4: replace floats by the nearest of 256 values where that is smaller
    std::vector<HeadInfo> headInfo;  // from version 2 on; readers skip it
};
