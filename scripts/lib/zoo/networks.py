"""Networks for scripts/zoo and scripts/bench-peers: name -> (function that makes one, shape of one input).

Weights are random. torchvision brings most of them; the others show what its models lack: recurrent layers, decoding
heads, attention that is written out, normalisations other than that of batches.
"""
import torch
import torchvision
from torch import nn
from torch.nn import functional as F


# A U-Net with PReLU and instance normalisation, or with the ReLU and batch normalisation of most.

class Double(nn.Sequential):
    def __init__(self, channels, out):
        super().__init__(
            nn.Conv2d(channels, out, 3, padding=1), nn.InstanceNorm2d(out, affine=True), nn.PReLU(out),
            nn.Conv2d(out, out, 3, padding=1, bias=False), nn.InstanceNorm2d(out), nn.PReLU())


class PlainDouble(nn.Sequential):
    def __init__(self, channels, out):
        super().__init__(
            nn.Conv2d(channels, out, 3, padding=1, bias=False), nn.BatchNorm2d(out), nn.ReLU(),
            nn.Conv2d(out, out, 3, padding=1, bias=False), nn.BatchNorm2d(out), nn.ReLU())


class UNet(nn.Module):
    def __init__(self, widths=(16, 32, 64, 128), classes=4, double=Double):
        super().__init__()
        self.down = nn.ModuleList(double(a, b) for a, b in zip((3,) + widths, widths))
        self.lift = nn.ModuleList(nn.ConvTranspose2d(b, a, 2, stride=2) for a, b in zip(widths, widths[1:]))
        self.up = nn.ModuleList(double(2 * a, a) for a in widths[:-1])
        self.head = nn.Conv2d(widths[0], classes, 1)

    def forward(self, x):
        kept = []
        for i, block in enumerate(self.down):
            x = block(x if i == 0 else F.max_pool2d(x, 2))
            kept.append(x)
        for i in reversed(range(len(self.up))):
            x = self.up[i](torch.cat([kept[i], self.lift[i](x)], 1))
        return self.head(x).softmax(1)


# Detectors: SiLU, spatial pyramid pooling, boxes decoded in the network.

def conv(channels, out, kernel=1, stride=1):
    return nn.Sequential(nn.Conv2d(channels, out, kernel, stride, (kernel - 1) // 2, bias=False),
                         nn.BatchNorm2d(out, eps=1e-3), nn.SiLU())


class Bottlenecks(nn.Module):
    def __init__(self, channels, out, count=1, shortcut=True):
        super().__init__()
        half = out // 2
        self.one, self.two, self.join = conv(channels, half), conv(channels, half), conv(2 * half, out)
        self.blocks = nn.ModuleList(nn.Sequential(conv(half, half), conv(half, half, 3)) for _ in range(count))
        self.shortcut = shortcut

    def forward(self, x):
        y = self.one(x)
        for block in self.blocks:
            y = y + block(y) if self.shortcut else block(y)
        return self.join(torch.cat([y, self.two(x)], 1))


class Pyramid(nn.Module):
    def __init__(self, channels):
        super().__init__()
        self.first, self.last = conv(channels, channels // 2), conv(2 * channels, channels)
        self.pool = nn.MaxPool2d(5, 1, 2)

    def forward(self, x):
        x = self.first(x)
        y = self.pool(x)
        z = self.pool(y)
        return self.last(torch.cat([x, y, z, self.pool(z)], 1))


class Body(nn.Module):
    """Features at strides 8, 16 and 32."""

    def __init__(self, w=16):
        super().__init__()
        self.stem = nn.Sequential(conv(3, w, 6, 2), conv(w, 2 * w, 3, 2), Bottlenecks(2 * w, 2 * w),
                                  conv(2 * w, 4 * w, 3, 2), Bottlenecks(4 * w, 4 * w, 2))
        self.middle = nn.Sequential(conv(4 * w, 8 * w, 3, 2), Bottlenecks(8 * w, 8 * w, 2))
        self.deep = nn.Sequential(conv(8 * w, 16 * w, 3, 2), Bottlenecks(16 * w, 16 * w), Pyramid(16 * w))
        self.narrow, self.narrower = conv(16 * w, 8 * w), conv(8 * w, 4 * w)
        self.up, self.upper = Bottlenecks(16 * w, 8 * w, 1, False), Bottlenecks(8 * w, 4 * w, 1, False)
        self.widths = (4 * w, 8 * w, 16 * w)

    def forward(self, x):
        a = self.stem(x)
        b = self.middle(a)
        c = self.deep(b)
        d = self.up(torch.cat([F.interpolate(self.narrow(c), scale_factor=2, mode="nearest"), b], 1))
        e = self.upper(torch.cat([F.interpolate(self.narrower(d), scale_factor=2, mode="nearest"), a], 1))
        return e, d, c


class AnchorDetector(nn.Module):
    """Boxes from anchors: five-dimensional reshapes, a grid of constants, squares."""

    def __init__(self, classes=10, anchors=3):
        super().__init__()
        self.body, self.anchors, self.outputs = Body(), anchors, classes + 5
        self.heads = nn.ModuleList(nn.Conv2d(width, anchors * self.outputs, 1) for width in self.body.widths)
        self.register_buffer("sizes", torch.rand(3, 1, anchors, 1, 1, 2) * 60 + 10)

    def forward(self, x):
        found = []
        for i, y in enumerate(self.body(x)):
            y = self.heads[i](y)
            n, _, h, w = y.shape
            y = y.view(n, self.anchors, self.outputs, h, w).permute(0, 1, 3, 4, 2).contiguous().sigmoid()
            rows, columns = torch.meshgrid(torch.arange(h), torch.arange(w), indexing="ij")
            grid = torch.stack((columns, rows), 2).expand(1, self.anchors, h, w, 2).float() - 0.5
            xy, wh, scores = y.split((2, 2, self.outputs - 4), 4)
            xy = (xy * 2 + grid) * 8 * 2 ** i
            wh = (wh * 2) ** 2 * self.sizes[i]
            found.append(torch.cat((xy, wh, scores), 4).view(n, -1, self.outputs))
        return torch.cat(found, 1)


class Distances(nn.Module):
    """The mean of a distribution over 16 distances for each side of a box."""

    def __init__(self, count=16):
        super().__init__()
        self.count = count
        self.sum = nn.Conv2d(count, 1, 1, bias=False)
        self.sum.weight.data[:] = torch.arange(count).view(1, count, 1, 1).float()

    def forward(self, x):
        n, _, places = x.shape
        return self.sum(x.view(n, 4, self.count, places).transpose(2, 1).softmax(1)).view(n, 4, places)


class AnchorFreeDetector(nn.Module):
    def __init__(self, classes=10):
        super().__init__()
        self.body, self.classes, self.distances = Body(), classes, Distances()
        self.boxes = nn.ModuleList(nn.Sequential(conv(w, 32, 3), nn.Conv2d(32, 64, 1)) for w in self.body.widths)
        self.scores = nn.ModuleList(nn.Sequential(conv(w, 32, 3), nn.Conv2d(32, classes, 1)) for w in self.body.widths)

    def forward(self, x):
        levels = self.body(x)
        y = torch.cat([torch.cat([box(level), score(level)], 1).flatten(2)
                       for level, box, score in zip(levels, self.boxes, self.scores)], 2)
        boxes, scores = y.split((64, self.classes), 1)
        points, strides = [], []
        for i, level in enumerate(levels):
            h, w = level.shape[2:]
            rows, columns = torch.meshgrid(torch.arange(h) + 0.5, torch.arange(w) + 0.5, indexing="ij")
            points.append(torch.stack((columns, rows), -1).view(-1, 2))
            strides.append(torch.full((h * w, 1), 8.0 * 2 ** i))
        points, strides = torch.cat(points).t(), torch.cat(strides).t()
        near, far = self.distances(boxes).chunk(2, 1)
        low, high = points.unsqueeze(0) - near, points.unsqueeze(0) + far
        return torch.cat((torch.cat(((low + high) / 2, high - low), 1) * strides, scores.sigmoid()), 1)


# Reading text: convolutions, then two bidirectional LSTM layers along the columns.

class Crnn(nn.Module):
    def __init__(self, classes=37, hidden=64, time_first=True, widths=(32, 64, 128, 128)):
        super().__init__()
        last = widths[-1]
        layers = []
        for i, (a, b) in enumerate(zip((1,) + widths, widths)):
            layers += [nn.Conv2d(a, b, 3, padding=1), nn.BatchNorm2d(b), nn.ReLU(),
                       nn.MaxPool2d(2) if i < 2 else nn.MaxPool2d((2, 2), (2, 1), (0, 1))]
        self.features = nn.Sequential(*layers, nn.Conv2d(last, last, 2), nn.ReLU())
        self.time_first = time_first
        self.lstm = nn.LSTM(last, hidden, 2, bidirectional=True, batch_first=not time_first)
        self.head = nn.Linear(2 * hidden, classes)

    def forward(self, x):
        x = self.features(x).squeeze(2)
        x, _ = self.lstm(x.permute(2, 0, 1) if self.time_first else x.permute(0, 2, 1))
        return self.head(x).log_softmax(2) if not self.time_first else self.head(x)


class StackedCrnn(Crnn):
    """Each layer by itself, with a linear one behind it that sees time steps and samples as one dimension."""

    def __init__(self):
        super().__init__()
        self.layers = nn.ModuleList(nn.LSTM(128, 64, bidirectional=True) for _ in range(2))
        self.between = nn.ModuleList([nn.Linear(128, 128), nn.Linear(128, 37)])

    def forward(self, x):
        x = self.features(x).squeeze(2).permute(2, 0, 1)
        for lstm, linear in zip(self.layers, self.between):
            x, _ = lstm(x)
            steps, n, width = x.size()
            x = linear(x.view(steps * n, width)).view(steps, n, -1)
        return x


# Attention.

class Attention(nn.Module):
    def __init__(self, width, heads):
        super().__init__()
        self.heads, self.scale = heads, (width // heads) ** -0.5
        self.qkv, self.join = nn.Linear(width, 3 * width), nn.Linear(width, width)

    def forward(self, x):
        n, places, width = x.shape
        qkv = self.qkv(x).reshape(n, places, 3, self.heads, width // self.heads).permute(2, 0, 3, 1, 4)
        q, k, v = qkv[0] * self.scale, qkv[1], qkv[2]
        attention = (q @ k.transpose(-2, -1)).softmax(-1)
        return self.join((attention @ v).transpose(1, 2).reshape(n, places, width))


class Block(nn.Module):
    def __init__(self, width, heads, activation=nn.GELU, eps=1e-6):
        super().__init__()
        self.norm, self.attention = nn.LayerNorm(width, eps), Attention(width, heads)
        self.norm2 = nn.LayerNorm(width, eps)
        self.mlp = nn.Sequential(nn.Linear(width, 4 * width), activation(), nn.Linear(4 * width, width))

    def forward(self, x):
        x = x + self.attention(self.norm(x))
        return x + self.mlp(self.norm2(x))


class SmallViT(nn.Module):
    def __init__(self, width=96, heads=4, depth=4, size=96, patch=16, classes=100):
        super().__init__()
        self.patches = nn.Conv2d(3, width, patch, patch)
        self.token = nn.Parameter(torch.randn(1, 1, width))
        self.places = nn.Parameter(torch.randn(1, (size // patch) ** 2 + 1, width) * 0.1)
        self.blocks = nn.Sequential(*(Block(width, heads) for _ in range(depth)))
        self.norm, self.head = nn.LayerNorm(width), nn.Linear(width, classes)

    def forward(self, x):
        x = self.patches(x).flatten(2).transpose(1, 2)
        x = torch.cat((self.token.expand(x.shape[0], -1, -1), x), 1) + self.places
        return self.head(self.norm(self.blocks(x))[:, 0])


class TextAttention(nn.Module):
    """Reads a line of text: convolutions with hardSwish, attention over its columns, scores for each column."""

    def __init__(self, classes=97):
        super().__init__()

        def layer(a, b, stride):
            return nn.Sequential(nn.Conv2d(a, b, 3, stride, 1, bias=False), nn.BatchNorm2d(b), nn.Hardswish())

        self.features = nn.Sequential(layer(3, 16, 2), layer(16, 32, 1), layer(32, 64, (2, 1)), layer(64, 96, (2, 1)),
                                      nn.AvgPool2d((6, 2)))
        self.inner = nn.Sequential(nn.Conv2d(96, 48, (1, 3), padding=(0, 1)), nn.BatchNorm2d(48), nn.SiLU())
        self.blocks = nn.Sequential(Block(48, 8, nn.SiLU), Block(48, 8, nn.SiLU))
        self.norm = nn.LayerNorm(48, 1e-6)
        self.outer = nn.Sequential(nn.Conv2d(48, 96, 1), nn.BatchNorm2d(96), nn.SiLU())
        self.join = nn.Conv2d(192, 96, (1, 3), padding=(0, 1))
        self.head = nn.Linear(96, classes)

    def forward(self, x):
        x = self.features(x)
        y = self.inner(x)
        n, c, h, w = y.shape
        y = self.norm(self.blocks(y.flatten(2).transpose(1, 2)))
        y = self.outer(y.reshape(-1, h, w, c).permute(0, 3, 1, 2))
        y = self.join(torch.cat((x, y), 1))
        return self.head(y.squeeze(2).permute(0, 2, 1)).softmax(2)


class TextDetector(nn.Module):
    """Finds text: a pyramid of features with attention over channels, a map of probabilities."""

    class Weighted(nn.Module):
        def __init__(self, channels):
            super().__init__()
            self.one, self.two = nn.Conv2d(channels, channels // 4, 1), nn.Conv2d(channels // 4, channels, 1)

        def forward(self, x):
            y = self.two(F.relu(self.one(F.adaptive_avg_pool2d(x, 1))))
            return x + x * torch.clamp(0.2 * y + 0.5, 0.0, 1.0)

    def __init__(self, width=48):
        super().__init__()
        body = torchvision.models.mobilenet_v3_small(weights=None).features
        self.stages = nn.ModuleList([body[:2], body[2:4], body[4:9], body[9:]])
        widths, thin = (16, 24, 48, 576), width // 4
        self.narrow = nn.ModuleList(
            nn.Sequential(nn.Conv2d(w, width, 1, bias=False), self.Weighted(width)) for w in widths)
        self.smooth = nn.ModuleList(nn.Conv2d(width, thin, 3, padding=1, bias=False) for _ in widths)
        self.head = nn.Sequential(
            nn.Conv2d(width, thin, 3, padding=1, bias=False), nn.BatchNorm2d(thin), nn.ReLU(),
            nn.ConvTranspose2d(thin, thin, 2, 2), nn.BatchNorm2d(thin), nn.ReLU(), nn.ConvTranspose2d(thin, 1, 2, 2))

    def forward(self, x):
        levels = []
        for stage, narrow in zip(self.stages, self.narrow):
            x = stage(x)
            levels.append(narrow(x))
        for i in (2, 1, 0):
            levels[i] = levels[i] + F.interpolate(levels[i + 1], scale_factor=2)
        maps = [smooth(level) for smooth, level in zip(self.smooth, levels)]
        maps = [maps[0]] + [F.interpolate(m, scale_factor=2 ** (i + 1)) for i, m in enumerate(maps[1:])]
        return self.head(torch.cat(maps[::-1], 1)).sigmoid()


# A little of everything that the others leave out.

class Assorted(nn.Module):
    def __init__(self):
        super().__init__()
        self.first = nn.Conv2d(3, 16, 3, padding=1)
        self.group = nn.GroupNorm(4, 16)
        self.deconv = nn.ConvTranspose2d(16, 16, 3, 2, 1, output_padding=1, groups=4)
        self.wide = nn.ConvTranspose2d(16, 8, 3, 2, 2, dilation=2)
        self.line = nn.Conv1d(8, 8, 3, padding=2, dilation=2, groups=2)
        self.activations = nn.ModuleList([
            nn.ELU(), nn.SELU(), nn.CELU(0.7), nn.Softsign(), nn.Hardswish(), nn.Hardsigmoid(),
            nn.GELU("tanh"), nn.LeakyReLU(0.1), nn.Hardtanh(-2, 2), nn.ReLU6()])

    def forward(self, x):
        x = self.group(self.first(x))
        x = F.pad(x, (1, 2, 3, 0))
        x = torch.cat([activation(x[:, :2]) for activation in self.activations], 1)[:, ::2]
        x = torch.cat([x, x[:, :6].abs().sqrt()], 1)
        x = F.avg_pool2d(x, 3, 2, 1, count_include_pad=False) + F.avg_pool2d(x, 3, 2, 1, ceil_mode=False)
        x = F.max_pool2d(x, 3, 2, ceil_mode=True)
        x = self.wide(self.deconv(x))
        x = F.pixel_shuffle(torch.cat([x, -x], 1), 2)
        x = F.interpolate(x, size=(20, 24), mode="bilinear", align_corners=True)
        x = F.interpolate(x, scale_factor=0.5, mode="bilinear", align_corners=False)
        x = F.normalize(torch.cat([x, x.flip(1)], 1), dim=1)
        y = self.line(x.mean(2)) + x.amax(2) - x.amin(2) * x.sum(2)
        return y.transpose(1, 2), x.flatten(1).norm(dim=1, keepdim=True), x.pow(2).mean((2, 3))


# One layer, eight times in a row. The first and the last pay for another layout, if a library has one of its own.

def chain(make, count=8):
    return lambda: nn.Sequential(*(make() for _ in range(count)))


def convolutions(channels, kernel, groups=1):
    return chain(lambda: nn.Conv2d(channels, channels, kernel, padding=kernel // 2, groups=groups))


def vision(name, **options):
    return lambda: getattr(torchvision.models, name)(weights=None, **options)


def segmentation(name):
    def make():
        return getattr(torchvision.models.segmentation, name)(weights=None, weights_backbone=None, num_classes=21)
    return make


# Name -> (function, shape of one input). scripts/zoo without names runs all of them.
NETWORKS = {
    "resnet18": (vision("resnet18"), (3, 224, 224)),
    "mobilenet_v2": (vision("mobilenet_v2"), (3, 224, 224)),
    "mobilenet_v3_small": (vision("mobilenet_v3_small"), (3, 224, 224)),
    "efficientnet_b0": (vision("efficientnet_b0"), (3, 224, 224)),
    "squeezenet1_1": (vision("squeezenet1_1"), (3, 224, 224)),
    "vgg11_bn": (vision("vgg11_bn"), (3, 224, 224)),
    "alexnet": (vision("alexnet"), (3, 224, 224)),
    "densenet121": (vision("densenet121"), (3, 224, 224)),
    "googlenet": (vision("googlenet", init_weights=False), (3, 224, 224)),
    "inception_v3": (vision("inception_v3", init_weights=False), (3, 299, 299)),
    "regnet_y_400mf": (vision("regnet_y_400mf"), (3, 224, 224)),
    "resnext50_32x4d": (vision("resnext50_32x4d"), (3, 224, 224)),
    "resnet50": (vision("resnet50"), (3, 224, 224)),
    "shufflenet_v2_x1_0": (vision("shufflenet_v2_x1_0"), (3, 224, 224)),
    "mnasnet0_5": (vision("mnasnet0_5"), (3, 224, 224)),
    "convnext_tiny": (vision("convnext_tiny"), (3, 224, 224)),
    "vit_b_16": (vision("vit_b_16"), (3, 224, 224)),
    "swin_t": (vision("swin_t"), (3, 224, 224)),
    "efficientnet_v2_s": (vision("efficientnet_v2_s"), (3, 192, 192)),
    "deeplabv3_mobilenet_v3_large": (segmentation("deeplabv3_mobilenet_v3_large"), (3, 193, 193)),
    "lraspp_mobilenet_v3_large": (segmentation("lraspp_mobilenet_v3_large"), (3, 224, 224)),
    "unet": (UNet, (3, 96, 128)),
    "anchor_detector": (AnchorDetector, (3, 160, 192)),
    "anchor_free_detector": (AnchorFreeDetector, (3, 160, 192)),
    "crnn": (Crnn, (1, 32, 100)),
    "crnn_batch_first": (lambda: Crnn(time_first=False), (1, 32, 100)),
    "crnn_stacked": (StackedCrnn, (1, 32, 100)),
    "small_vit": (SmallViT, (3, 96, 96)),
    "text_attention": (TextAttention, (3, 48, 160)),
    "text_detector": (TextDetector, (3, 160, 160)),
    "assorted": (Assorted, (3, 33, 40)),
}

# What scripts/bench-peers times: networks at the sizes that they are used at.
PEERS = {name: NETWORKS[name] for name in (
    "resnet18", "resnet50", "mobilenet_v2", "mobilenet_v3_small", "efficientnet_b0", "squeezenet1_1")}
PEERS.update({
    "unet": (lambda: UNet((32, 64, 128, 256), double=PlainDouble), (3, 256, 256)),
    "unet_prelu": (UNet, (3, 256, 256)),
    "crnn": (lambda: Crnn(hidden=256, widths=(64, 128, 256, 512)), (1, 32, 160)),
    "text_detector": (lambda: TextDetector(96), (3, 640, 640)),
})

# What scripts/bench-peers --layers times. A dense 3x3 over 64 channels of 56 x 56 pixels is called dense3x3_64x56.
CHAINS = {f"dense3x3_{c}x{size}": (convolutions(c, 3), (c, size, size))
          for c, size in ((64, 56), (128, 28), (256, 14), (512, 7), (24, 112))}
CHAINS.update({f"dense1x1_{c}x{size}": (convolutions(c, 1), (c, size, size))
               for c, size in ((64, 56), (256, 56), (256, 14), (1024, 7), (40, 28))})
CHAINS.update({f"depthwise{k}x{k}_{c}x{size}": (convolutions(c, k, c), (c, size, size))
               for k, c, size in ((3, 32, 112), (3, 128, 56), (3, 512, 14), (5, 240, 14), (3, 72, 28))})
CHAINS["linear_1024"] = (chain(lambda: nn.Linear(1024, 1024)), (1024,))
# The least that a run can do, which tells what a call costs.
CHAINS["nothing"] = (nn.ReLU, (1, 1, 1))

SETS = {"zoo": NETWORKS, "peers": PEERS, "chains": CHAINS}
