#include <memory>

#include "Network.h"
#include "bareProduct.h"
#include "benches.h"
#include "compare.h"
#include "compareLevels.h"

namespace {

struct Convolution {
    const char* name;
    int groups, outChannels, inChannels;  // channels of one group
    int kernel, stride, padding, extent;  // the same in both directions
};

// im2col: for each group, a column for each output position with the inputs that the kernel covers there.
std::vector<float> columns(const Convolution& conv, const std::vector<float>& input, int outExtent) {
    std::vector<float> result;
    for (int g = 0; g < conv.groups; ++g)
        for (int oh = 0; oh < outExtent; ++oh)
            for (int ow = 0; ow < outExtent; ++ow)
                for (int ic = 0; ic < conv.inChannels; ++ic)
                    for (int kh = 0; kh < conv.kernel; ++kh)
                        for (int kw = 0; kw < conv.kernel; ++kw) {
                            const int ih = oh * conv.stride - conv.padding + kh;
                            const int iw = ow * conv.stride - conv.padding + kw;
                            const bool inside = ih >= 0 && ih < conv.extent && iw >= 0 && iw < conv.extent;
                            const int row = (g * conv.inChannels + ic) * conv.extent + ih;
                            result.push_back(inside ? input[static_cast<std::size_t>(row * conv.extent + iw)] : 0.0f);
                        }
    return result;
}

void compareConvolution(const Convolution& conv) {
    const int k = conv.inChannels * conv.kernel * conv.kernel;
    auto weights = std::make_shared<std::vector<float>>(
        randomFloats(static_cast<std::size_t>(conv.groups) * static_cast<std::size_t>(conv.outChannels * k)));
    const nolk::TensorShape shape{1, conv.groups * conv.inChannels, conv.extent, conv.extent, 3};
    const auto net = std::make_shared<Network>(
        std::vector<nolk::TensorShape>{shape}, [&](nolk::RunnerBuilder& builder, const std::vector<nolk::TensorX*>& x) {
            const int p = conv.padding;
            return builder.convolve(x[0], {p, p, p, p}, {conv.stride, conv.stride}, {1, 1},
                                    {conv.groups, conv.outChannels, conv.inChannels, conv.kernel, conv.kernel, false,
                                     weights->data(), nullptr});
        });

    const int positions = net->outputShape().h * net->outputShape().w;
    const auto b = std::make_shared<std::vector<float>>(columns(conv, net->input(0), net->outputShape().h));
    const auto c = std::make_shared<std::vector<float>>(net->output().size());
    const auto bare = [weights, b, c, k, positions, groups = conv.groups, m = conv.outChannels] {
        for (std::ptrdiff_t g = 0; g < groups; ++g)
            bareProduct(weights->data() + g * m * k, b->data() + g * k * positions, c->data() + g * m * positions, m, k,
                        positions);
    };
    compare(conv.name, {[net] { net->run(); }, &net->output()}, {bare, c.get()}, 1e-3f);
    if (conv.kernel == 3 && conv.stride == 1 && conv.groups == 1) compareLevels(conv.name, [net] { net->run(); });
}

}  // namespace

void compareConvolutions() {
    const Convolution convolutions[] = {
        {"conv 3x3, 64 to 64, 56x56", 1, 64, 64, 3, 1, 1, 56},
        {"conv 3x3, 256 to 256, 14x14", 1, 256, 256, 3, 1, 1, 14},
        {"conv 3x3 stride 2, 3 to 32, 224x224", 1, 32, 3, 3, 2, 1, 224},
        {"conv 1x1, 64 to 128, 56x56", 1, 128, 64, 1, 1, 0, 56},
        {"depthwise 3x3, 128, 56x56", 128, 1, 1, 3, 1, 1, 56},
    };
    for (const Convolution& conv : convolutions) compareConvolution(conv);
}
