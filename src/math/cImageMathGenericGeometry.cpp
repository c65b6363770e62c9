// Shapes, bridges and resampling of the plain image math: the masks of the PSF
// constraints, the smoothing Gaussian, the theoretical PSF kernel, the bridges that close
// the wrap-around gap round a box, and the outlines of masks.
#include "math/cImageMathGeneric.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "core/cException.h"
#include "core/cWorkerPool.h"
#include "math/ImageWalk.h"
#include "math/PsfKernels.h"
#include "math/PsfPhase.h"

namespace Ovidane {
namespace {

// π in single precision, as the raised-cosine bridge takes it.
constexpr float kPi = 3.14159265358979f;

// All shapes are centred on pixel (0, 0, 0) in wrap-around order: index i of an axis of
// size n lies at distance i from the centre in the first half and n − i in the second.
// Index 0 is the origin at every size; without that test an axis of one pixel (a single
// plane) would put its only index a whole pixel away from the origin.
inline uint32_t WrapDistance(uint32_t i, uint32_t n) {
    return i == 0 || uint64_t{2} * i < n ? i : n - i;
}

inline int64_t SignedWrapDistance(uint32_t i, uint32_t n) {
    return i == 0 || uint64_t{2} * i < n ? int64_t{i} : int64_t{i} - int64_t{n};
}

// Walks every pixel of an image with its lateral radius r = √((wx·dx)² + (wy·dy)²) and
// its axial distance a = wz·dz, lines in parallel. rule(pixel, r, a, z) decides the pixel.
template <class PixelRule>
void ForEachRadialPixel(const cFloatImage& image, float dx, float dy, float dz, PixelRule&& rule) {
    const cImageDimensions size = image.GetDimensions();
    ImageWalk::ForEachLine(size, [&](uint32_t y, uint32_t z) {
        float* line = image.GetLinePointer(y, z);
        const float lateralY = static_cast<float>(WrapDistance(y, size.y)) * dy;
        const float lateralY2 = lateralY * lateralY;
        const float axial = static_cast<float>(WrapDistance(z, size.z)) * dz;
        for (uint32_t x = 0; x < size.x; ++x) {
            const float lateralX = static_cast<float>(WrapDistance(x, size.x)) * dx;
            const float r = std::sqrt(lateralX * lateralX + lateralY2);
            rule(line[x], r, axial, z);
        }
    });
}

// Pixel access by (x, y, z) through slice pointers taken once per operation, for walks
// across lines (the y and z bridges) that can't use a line pointer.
class cVolumeView {
public:
    explicit cVolumeView(const cFloatImage& image)
        : mSize(image.GetDimensions()), mSlices(mSize.z) {
        for (uint32_t z = 0; z < mSize.z; ++z)
            mSlices[z] = image.GetSlicePointer(z);
    }
    const cImageDimensions& Size() const { return mSize; }
    float& At(uint32_t x, uint32_t y, uint32_t z) const {
        return mSlices[z][std::size_t{y} * mSize.x + x];
    }

private:
    cImageDimensions mSize;
    std::vector<float*> mSlices;
};

// Linear bridge along one axis of size n between index e (value ve) and index s (value
// vs), over the end of the axis; at(i) is the pixel at index i of that axis. The ramp has
// s + (n − e) steps. Along x the far part starts at e itself (where the weight is 1,
// so e keeps ve); along y and z it starts one past e with the same weights, so pixel
// e + 1 repeats ve and the ramp is shifted by one pixel on that side.
template <class At> void LinearBridge(At&& at, uint32_t n, uint32_t s, uint32_t e, bool alongX) {
    const float vs = at(s);
    const float ve = at(e);
    const uint32_t b = n - e;
    const uint32_t count = s + b;
    const float span = static_cast<float>(count);
    for (uint32_t i = 0; i < s; ++i) {
        const float w = static_cast<float>(b + i) / span;
        at(i) = (1.0f - w) * ve + w * vs;
    }
    const uint32_t farCount = alongX ? b : b - 1;
    const uint32_t farStart = alongX ? e : e + 1;
    for (uint32_t i = 0; i < farCount; ++i) {
        const float w = static_cast<float>(count - i) / span;
        at(farStart + i) = (1.0f - w) * vs + w * ve;
    }
}

// Raised-cosine bridge along one axis; `table` is scratch for the weights. Along x and y
// the ramp spans the pixels strictly between e and s over the end of the axis; along z
// its table is one sample longer, as if e belonged to the gap, though e keeps its value.
template <class At>
void CosineBridge(At&& at, uint32_t n, uint32_t s, uint32_t e, bool alongZ,
                  std::vector<float>& table) {
    const float vs = at(s);
    const float ve = at(e);
    const uint32_t b = alongZ ? n - e : n - e - 1;
    const uint32_t count = s + b;
    table.resize(count);
    if (count == 1) {
        // A gap of a single pixel: the ramp has no length, so the pixel takes the middle.
        table[0] = 0.5f;
    } else {
        const float last = static_cast<float>(count - 1);
        for (uint32_t i = 0; i < count; ++i)
            table[i] = 0.5f - 0.5f * std::cos(kPi * static_cast<float>(i) / last);
    }
    for (uint32_t i = 0; i < s; ++i) {
        const float f = table[i + b];
        at(i) = (1.0f - f) * ve + f * vs;
    }
    const uint32_t farCount = alongZ ? (b > 0 ? b - 1 : 0) : b;
    for (uint32_t i = 0; i < farCount; ++i) {
        const float f = table[count - 1 - i];
        at(e + 1 + i) = (1.0f - f) * vs + f * ve;
    }
}

// Closes the gap along the line that joins start and end. Each axis whose two other
// coordinates agree is bridged in turn, x, then y, then z; equal positions bridge all three.
template <class Bridge>
void BridgeLine(const cVolumeView& view, const cImagePosition& start, const cImagePosition& end,
                Bridge&& bridge) {
    const cImageDimensions& size = view.Size();
    if (start.y == end.y && start.z == end.z) {
        float* line = &view.At(0, start.y, start.z);
        bridge([line](uint32_t i) -> float& { return line[i]; }, size.x, start.x, end.x, 0);
    }
    if (start.x == end.x && start.z == end.z) {
        float* column = &view.At(start.x, 0, start.z);
        const std::size_t stride = size.x;
        bridge([column, stride](uint32_t i) -> float& { return column[i * stride]; }, size.y,
               start.y, end.y, 1);
    }
    if (start.x == end.x && start.y == end.y) {
        bridge([&view, &start](uint32_t i) -> float& { return view.At(start.x, start.y, i); },
               size.z, start.z, end.z, 2);
    }
}

void BridgeLinear(const cVolumeView& view, const cImagePosition& start, const cImagePosition& end) {
    BridgeLine(view, start, end, [](auto&& at, uint32_t n, uint32_t s, uint32_t e, int axis) {
        LinearBridge(at, n, s, e, axis == 0);
    });
}

void BridgeCosine(const cVolumeView& view, const cImagePosition& start, const cImagePosition& end,
                  std::vector<float>& table) {
    BridgeLine(view, start, end, [&table](auto&& at, uint32_t n, uint32_t s, uint32_t e, int axis) {
        CosineBridge(at, n, s, e, axis == 2, table);
    });
}

// One resampling pass along an axis, from n samples to m, in the form of weights on the
// source samples: out[i] = Σ weight·p[index]. The callers apply each out index's weights
// to whole lines, so a pass is a run of line combinations.
//   f = n / m equal to 1: a copy.
//   f below 1: linear interpolation at u = i·f, scaled by f.
//   f above 1: the area sum of the source over [i·f, i·f + f).
// So each pass carries a factor f, which the last pass divides out again.
class cResamplePass {
public:
    cResamplePass(uint32_t from, uint32_t to)
        : mFactor(static_cast<float>(from) / static_cast<float>(to)), mTerms(to + 1) {
        const uint32_t last = from - 1;
        for (uint32_t i = 0; i < to; ++i) {
            mTerms[i] = static_cast<uint32_t>(mWeights.size());
            if (mFactor == 1.0f) {
                Add(i, 1.0f, last);
            } else if (mFactor < 1.0f) {
                const float u = static_cast<float>(i) * mFactor;
                const float j = std::floor(u);
                const float t = u - j;
                const uint32_t index = static_cast<uint32_t>(j);
                if (index + 1 > last) {
                    Add(index, 1.0f, last);
                } else {
                    Add(index, 1.0f - t, last);
                    Add(index + 1, t, last);
                }
            } else {
                float pos = static_cast<float>(i) * mFactor;
                float rest = mFactor;
                while (rest > 0.0f) {
                    float step = rest;
                    const float next = std::floor(pos + 1.0f);
                    if (next < pos + rest)
                        step = next - pos;
                    Add(static_cast<uint32_t>(std::floor(pos)), step, last);
                    pos += step;
                    rest -= step;
                }
            }
        }
        mTerms[to] = static_cast<uint32_t>(mWeights.size());
    }

    // Writes out index i into `target` from the source lines given by line(index), each
    // of `length` pixels, then applies finish(value) to each result.
    template <class SourceLine, class Finish>
    void Combine(uint32_t i, float* target, uint32_t length, SourceLine&& line,
                 Finish&& finish) const {
        const uint32_t first = mTerms[i], end = mTerms[i + 1];
        if (mFactor == 1.0f) {
            const float* p = line(mIndices[first]);
            for (uint32_t x = 0; x < length; ++x)
                target[x] = finish(p[x]);
        } else if (mFactor < 1.0f) {
            const float* p0 = line(mIndices[first]);
            if (end - first == 1) {
                for (uint32_t x = 0; x < length; ++x)
                    target[x] = finish(mFactor * p0[x]);
            } else {
                const float* p1 = line(mIndices[first + 1]);
                const float w0 = mWeights[first], w1 = mWeights[first + 1];
                for (uint32_t x = 0; x < length; ++x)
                    target[x] = finish(mFactor * (w0 * p0[x] + w1 * p1[x]));
            }
        } else {
            std::fill(target, target + length, 0.0f);
            for (uint32_t k = first; k < end; ++k) {
                const float* p = line(mIndices[k]);
                const float w = mWeights[k];
                for (uint32_t x = 0; x < length; ++x)
                    target[x] += w * p[x];
            }
            for (uint32_t x = 0; x < length; ++x)
                target[x] = finish(target[x]);
        }
    }

    // Out index i of one contiguous source line p, for the pass along x.
    float Value(uint32_t i, const float* p) const {
        const uint32_t first = mTerms[i], end = mTerms[i + 1];
        if (mFactor == 1.0f)
            return p[mIndices[first]];
        if (mFactor < 1.0f) {
            if (end - first == 1)
                return mFactor * p[mIndices[first]];
            return mFactor * (mWeights[first] * p[mIndices[first]] +
                              mWeights[first + 1] * p[mIndices[first + 1]]);
        }
        float sum = 0.0f;
        for (uint32_t k = first; k < end; ++k)
            sum += mWeights[k] * p[mIndices[k]];
        return sum;
    }

    float Factor() const { return mFactor; }

private:
    // Rounding at the far end of the last stretch may land on the index one past the
    // source; it reads the last sample instead.
    void Add(uint32_t index, float weight, uint32_t last) {
        mIndices.push_back(std::min(index, last));
        mWeights.push_back(weight);
    }

    float mFactor;
    std::vector<uint32_t> mTerms;
    std::vector<uint32_t> mIndices;
    std::vector<float> mWeights;
};

// The sum of a plane given line by line, in double (PsfKernels' sixteen-part plane sum).
template <class PlaneLine> double PlaneSum(uint32_t lines, uint32_t length, PlaneLine&& line) {
    double parts[PsfKernels::kPlaneSumParts] = {};
    for (uint32_t l = 0; l < lines; ++l)
        PsfKernels::AddToPlaneSum(line(l), length, parts);
    return PsfKernels::PlaneSumTotal(parts);
}

// Scales a plane given line by line, whose sum is `sum`, so that it sums to `target`; a
// plane that sums to 0 is set flat. Returns the sum of the scaled plane, taken as it is
// scaled.
template <class PlaneLine>
double ScalePlaneTo(uint32_t lines, uint32_t length, PlaneLine&& line, double sum,
                    float target) {
    double parts[PsfKernels::kPlaneSumParts] = {};
    if (static_cast<float>(sum) == 0.0f) {
        const float flat = target / static_cast<float>(uint64_t{lines} * length);
        for (uint32_t l = 0; l < lines; ++l) {
            std::fill(line(l), line(l) + length, flat);
            PsfKernels::AddToPlaneSum(line(l), length, parts);
        }
        return PsfKernels::PlaneSumTotal(parts);
    }
    const float factor = static_cast<float>(static_cast<double>(target) / sum);
    if (factor == 1.0f)
        return sum;
    for (uint32_t l = 0; l < lines; ++l)
        PsfKernels::ScaleAndAddToPlaneSum(line(l), length, factor, parts);
    return PsfKernels::PlaneSumTotal(parts);
}

bool IsConfocal(int modality) {
    return modality == 3 || modality == 5; // confocal and multi-photon: intensity squared
}

} // namespace

// ---- Bridges over the wrap-around gap

void cImageMathGeneric::InterpolateLine(const cFloatImagePtr& image, cImagePosition& start,
                                        cImagePosition& end) {
    RequireImages("InterpolateLine", {&image});
    RequireRoiInside("InterpolateLine", image, {start.x, start.y, start.z, end.x, end.y, end.z});
    Guard([&] { BridgeLinear(cVolumeView(*image), start, end); });
}

void cImageMathGeneric::InterpolateLineCosine(const cFloatImagePtr& image, cImagePosition& start,
                                              cImagePosition& end) {
    if (image.IsNull()) {
        SecondStream() << "Generic Math Error" << std::endl;
        return;
    }
    RequireRoiInside("InterpolateLineCosine", image,
                     {start.x, start.y, start.z, end.x, end.y, end.z});
    Guard([&] {
        std::vector<float> table;
        BridgeCosine(cVolumeView(*image), start, end, table);
    });
}

void cImageMathGeneric::InterpolateRoi(const cFloatImagePtr& image, const cImageBox& box,
                                       int mode) {
    RequireImages("InterpolateRoi", {&image});
    RequireRoiInside("InterpolateRoi", image, box);
    if (mode != 1 && mode != 2)
        return;
    Guard([&] {
        const cImageBox b = Sorted(box);
        const cVolumeView view(*image);
        const cImageDimensions size = view.Size();
        std::vector<float> table;
        auto bridge = [&](cImagePosition start, cImagePosition end) {
            if (mode == 1)
                BridgeLinear(view, start, end);
            else
                BridgeCosine(view, start, end, table);
        };
        // Only axes on which the box leaves a gap are bridged. An axis that the box covers
        // whole has nothing to fill; bridging it anyway would, on an axis of one pixel,
        // treat equal ends as a gap all round and flatten every line to one value (a
        // single-plane PSF placed into a larger plane would come out flat).
        const bool bridgeY = b.y1 - b.y0 + 1 < size.y;
        const bool bridgeX = b.x1 - b.x0 + 1 < size.x;
        const bool bridgeZ = b.z1 - b.z0 + 1 < size.z;
        // Later families see what the earlier ones wrote: the x lines bridge the rows that
        // the y lines made, and the z lines fill the corners last.
        for (uint32_t z = b.z0; z <= b.z1; ++z) {
            if (bridgeY)
                for (uint32_t x = 0; x < size.x; ++x)
                    bridge({x, b.y0, z}, {x, b.y1, z});
            if (bridgeX)
                for (uint32_t y = 0; y < size.y; ++y)
                    bridge({b.x0, y, z}, {b.x1, y, z});
        }
        if (bridgeZ)
            for (uint32_t y = 0; y < size.y; ++y)
                for (uint32_t x = 0; x < size.x; ++x)
                    bridge({x, y, b.z0}, {x, y, b.z1});
    });
}

// ---- Resampling

void cImageMathGeneric::InterpolateBilinear(const cFloatImagePtr& in, const cFloatImagePtr& out,
                                            const cFloatImagePtr& firstWork,
                                            const cFloatImagePtr& secondWork) {
    const char* name = "InterpolateBilinear";
    RequireImages(name, {&in, &out, &firstWork, &secondWork});
    const cImageDimensions from = in->GetDimensions();
    const cImageDimensions to = out->GetDimensions();
    const cImageDimensions first = firstWork->GetDimensions();
    const cImageDimensions second = secondWork->GetDimensions();
    if (from.Voxels() == 0 || to.Voxels() == 0 || first.x != to.x || first.y != from.y ||
        first.z < 1 || !(second == cImageDimensions{to.x, to.y, from.z}))
        Fail(std::string("Invalid Dimensions in ") + name, OVD_ERR_PARAMETER);

    const float minimum = FindMinimumValue(in);
    const float maximum = FindMaximumValue(in);
    Guard([&] {
        const cResamplePass passX(from.x, to.x), passY(from.y, to.y), passZ(from.z, to.z);
        const float scale = passX.Factor() * passY.Factor() * passZ.Factor();
        const auto keep = [](float v) { return v; };
        const int threads = ImageWalk::ThreadsFor(std::max(from.Voxels(), to.Voxels()));

        for (uint32_t z = 0; z < from.z; ++z) {
            // Along x, each line of slice z on its own: out column i from source columns.
            cWorkerPool::ForEach(int64_t{from.y}, threads, [&](int64_t y, int) {
                const float* source = in->GetLinePointer(static_cast<uint32_t>(y), z);
                float* target = firstWork->GetLinePointer(static_cast<uint32_t>(y), 0);
                for (uint32_t i = 0; i < to.x; ++i)
                    target[i] = passX.Value(i, source);
            });
            // Along y, whole lines of firstWork into each line of slice z of secondWork.
            cWorkerPool::ForEach(int64_t{to.y}, threads, [&](int64_t i, int) {
                passY.Combine(
                    static_cast<uint32_t>(i),
                    secondWork->GetLinePointer(static_cast<uint32_t>(i), z), to.x,
                    [&](uint32_t j) { return firstWork->GetLinePointer(j, 0); }, keep);
            });
        }
        // Along z, lines of secondWork into out, with the three factors taken out again and
        // the result held to the range of the input.
        const auto finish = [&](float v) { return std::clamp(v / scale, minimum, maximum); };
        ImageWalk::ForEachLine(to, [&](uint32_t y, uint32_t z) {
            passZ.Combine(
                z, out->GetLinePointer(y, z), to.x,
                [&](uint32_t j) { return secondWork->GetLinePointer(y, j); }, finish);
        });
    });
}

// ---- Shape generators

void cImageMathGeneric::GenerateGridMask(const cFloatImagePtr& image, const unsigned& stepXY,
                                         const unsigned& stepZ) {
    RequireImages("GenerateGridMask", {&image});
    // A step of 0 has index 0 as its only multiple.
    const auto onGrid = [](uint32_t i, uint32_t step) {
        return step == 0 ? i == 0 : i % step == 0;
    };
    const cImageDimensions size = image->GetDimensions();
    const uint32_t xy = stepXY, zStep = stepZ;
    ImageWalk::ForEachLine(size, [&](uint32_t y, uint32_t z) {
        if (!onGrid(z, zStep))
            return;
        float* line = image->GetLinePointer(y, z);
        const bool gridRow = onGrid(y, xy);
        for (uint32_t x = 0; x < size.x; ++x)
            if (!gridRow || !onGrid(x, xy))
                line[x] = 1.0f;
    });
}

void cImageMathGeneric::GenerateBesselArray(const cFloatImagePtr& image, const double& scale) {
    RequireImages("GenerateBesselArray", {&image});
    const cImageDimensions size = image->GetDimensions();
    if (size.x == 0 || size.y == 0 || size.z == 0)
        return;
    // One line per pupil sample j: entry i is j·J0(i·j·scale). J0 depends on the product
    // i·j alone, and a table of a few hundred by a few hundred holds well under half as many
    // distinct products as entries: J0, the costly part, is evaluated once per product. The
    // values take at most twice the table's memory, for the time of the call.
    const uint64_t products = uint64_t{size.x - 1} * (size.z - 1) + 1;
    std::vector<char> needed(products, 0);
    for (uint32_t j = 0; j < size.z; ++j)
        for (uint32_t i = 0; i < size.x; ++i)
            needed[uint64_t{i} * j] = 1;
    std::vector<double> bessel(products);
    constexpr uint64_t kChunk = 1024;
    const auto chunks = static_cast<int64_t>((products + kChunk - 1) / kChunk);
    cWorkerPool::ForEach(chunks, ImageWalk::ThreadsFor(size.Voxels()), [&](int64_t c, int) {
        const uint64_t end = std::min(products, uint64_t(c + 1) * kChunk);
        for (uint64_t m = uint64_t(c) * kChunk; m < end; ++m)
            if (needed[m])
                bessel[m] = ::j0(static_cast<unsigned>(m) * scale);
    });
    ImageWalk::ForEachSlice({size.x, 1, size.z}, [&](uint32_t j) {
        float* line = image->GetLinePointer(0, j);
        for (uint32_t i = 0; i < size.x; ++i)
            line[i] = static_cast<float>(j * bessel[uint64_t{i} * j]);
    });
}

void cImageMathGeneric::GeneratePsfWithSphericalAberrationUsingBessel(
    const cFloatImagePtr& target, const cFloatImagePtr& plane, const cFloatImagePtr& table,
    const cCountedArray<int32_t>& indexMap, const cCountedArray<float>& fractionMap,
    const cCountedArray<float>& realSum, const cCountedArray<float>& imaginarySum,
    const cCountedArray<float>& intensity, const cCountedArray<float>& phaseCosine,
    const cCountedArray<float>& phaseSine, const cImageDimensions& targetSize,
    const float& numericalAperture, const float& refractiveIndex, const float& lambda,
    const float& sphericalAberration, const float& axialPhaseFactor, const float& dz,
    const float& dRho, const unsigned& oversampling, const int& modality) {
    const char* name = "GeneratePsfWithSphericalAberrationUsingBessel";
    RequireImages(name, {&target, &plane, &table});
    for (bool empty :
         {indexMap.IsNull() || indexMap->empty(), fractionMap.IsNull() || fractionMap->empty(),
          realSum.IsNull() || realSum->empty(), imaginarySum.IsNull() || imaginarySum->empty(),
          intensity.IsNull() || intensity->empty(), phaseCosine.IsNull() || phaseCosine->empty(),
          phaseSine.IsNull() || phaseSine->empty()})
        if (empty)
            Fail(std::string("NULL input image in ") + name, OVD_ERR_PARAMETER);

    const uint32_t S = oversampling;
    const uint32_t NX = targetSize.x, NY = targetSize.y, NZ = targetSize.z;
    const uint32_t W = NX * S, H = NY * S;
    const uint32_t R = table->GetSizeX(), P = table->GetSizeZ();
    const uint32_t halfW = W / 2, halfH = H / 2, quadW = halfW + 1;
    const std::size_t quadrant = std::size_t{halfH + 1} * quadW;
    bool valid = S >= 1 && NX >= 1 && NY >= 1 && NZ >= 1 && target->GetDimensions() == targetSize &&
                 plane->GetSizeX() == W && plane->GetSizeY() == H && plane->GetSizeZ() >= 1 &&
                 R >= 2 && P >= 1 && table->GetSizeY() >= 1 && realSum->size() >= R &&
                 imaginarySum->size() >= R && intensity->size() >= R && phaseCosine->size() >= P &&
                 phaseSine->size() >= P && indexMap->size() >= quadrant &&
                 fractionMap->size() >= quadrant;
    // Every radial sample and its neighbour must lie in the table.
    for (std::size_t k = 0; valid && k < quadrant; ++k)
        valid = (*indexMap)[k] >= 0 && static_cast<uint32_t>((*indexMap)[k]) + 1 < R;
    if (!valid)
        Fail(std::string("Invalid Dimensions in ") + name, OVD_ERR_PARAMETER);

    Guard([&] {
        const float NA = numericalAperture, n = refractiveIndex, SA = sphericalAberration;
        const float alpha = std::asin(NA / n);
        const float halfAngleSine = std::sin(alpha / 2.0f);
        const float halfAngleSine2 = halfAngleSine * halfAngleSine;
        const bool confocal = IsConfocal(modality);

        // A single plane is the weighted sum of ten planes round the focus, spaced by the
        // axial resolution.
        uint32_t planeCount = NZ, half = NZ / 2;
        float planeStep = dz;
        if (NZ == 1) {
            planeCount = 10;
            half = 5;
            planeStep = lambda / (halfAngleSine2 * n * 4.0f);
        }
        // Without aberration the PSF is symmetric in z: the planes past the middle are
        // copies made at the end.
        std::vector<uint32_t> planes;
        for (uint32_t p = 0; p < planeCount; ++p)
            if (!(SA == 0.0f && p > half))
                planes.push_back(p);

        // Scratch per thread: the first thread works in the caller's buffers, the others in
        // their own, all made here and reused for every plane they compute.
        const int threads =
            std::max(1, std::min<int>(cWorkerThreads::Count(), static_cast<int>(planes.size())));
        struct cScratch {
            float *plane, *real, *imaginary, *intensity, *cosine, *sine, *blocks;
        };
        std::vector<cScratch> scratch(threads);
        std::vector<std::vector<float>> storage(threads - 1);
        // One target line of block sums per thread, for the binning.
        std::vector<float> blockLines(std::size_t{NX} * static_cast<std::size_t>(threads));
        scratch[0] = {plane->GetSlicePointer(0), realSum->data(),     imaginarySum->data(),
                      intensity->data(),         phaseCosine->data(), phaseSine->data(),
                      blockLines.data()};
        for (int t = 1; t < threads; ++t) {
            scratch[t].blocks = blockLines.data() + std::size_t{NX} * static_cast<std::size_t>(t);
            std::vector<float>& s = storage[t - 1];
            s.resize(std::size_t{W} * H + 3 * std::size_t{R} + 2 * std::size_t{P});
            float* base = s.data();
            scratch[t].plane = base;
            scratch[t].real = base + std::size_t{W} * H;
            scratch[t].imaginary = scratch[t].real + R;
            scratch[t].intensity = scratch[t].imaginary + R;
            scratch[t].cosine = scratch[t].intensity + R;
            scratch[t].sine = scratch[t].cosine + P;
        }
        std::vector<const float*> tableLines(P);
        for (uint32_t j = 0; j < P; ++j)
            tableLines[j] = table->GetLinePointer(0, j);
        const int32_t* index = indexMap->data();
        const float* fraction = fractionMap->data();

        // The oversampled intensity of plane p in s.plane: the Hankel sum over the pupil,
        // one quadrant by radial look-up, the rest by mirroring.
        const auto computePlane = [&](uint32_t p, const cScratch& s) {
            const int64_t zi = p <= half ? int64_t{p} : int64_t{p} - int64_t{planeCount};
            const float z = static_cast<float>(zi) * planeStep;
            PsfPhase::FillPupilPhase(z, dRho, NA, lambda, SA, axialPhaseFactor, mBalancePsfFocus, P, s.cosine,
                                     s.sine);
            std::fill_n(s.real, R, 0.0f);
            std::fill_n(s.imaginary, R, 0.0f);
            for (uint32_t j = 0; j < P; ++j)
                PsfKernels::AddPupilTerm(tableLines[j], s.cosine[j], s.sine[j], s.real,
                                         s.imaginary, R);
            for (uint32_t i = 0; i < R; ++i)
                s.intensity[i] = s.real[i] * s.real[i] + s.imaginary[i] * s.imaginary[i];
            for (uint32_t y = 0; y <= halfH; ++y) {
                float* row = s.plane + std::size_t{y} * W;
                const int32_t* rowIndex = index + std::size_t{y} * quadW;
                const float* rowFraction = fraction + std::size_t{y} * quadW;
                for (uint32_t x = 0; x <= halfW; ++x) {
                    const int32_t k = rowIndex[x];
                    const float f = rowFraction[x];
                    row[x] = s.intensity[k + 1] * f + (1.0f - f) * s.intensity[k];
                }
                for (uint32_t x = halfW + 1; x < W; ++x)
                    row[x] = row[W - x];
            }
            // The rows past the middle mirror those before it; only a single plane's sum,
            // taken over the whole plane, needs them written out. The binning reads the
            // mirrored row in their place.
            if (NZ == 1)
                for (uint32_t y = halfH + 1; y < H; ++y)
                    std::memcpy(s.plane + std::size_t{y} * W, s.plane + std::size_t{H - y} * W,
                                sizeof(float) * W);
            if (NZ == 1) {
                const auto row = [&](uint32_t y) { return s.plane + std::size_t{y} * W; };
                ScalePlaneTo(H, W, row, PlaneSum(H, W, row), p == 0 ? 1.0f : 2.0f);
            }
        };
        // Bins the oversampled plane into target plane tp: each S by S block summed from 0
        // row by row, each row's sub-pixels in column order, a whole target line of blocks at
        // once. A single plane's ten planes are added into its one target plane; otherwise
        // a plane's blocks are its target plane, whose sum goes into `parts`.
        const auto binPlane = [&](const cScratch& s, uint32_t tp, double* parts) {
            for (uint32_t y = 0; y < NY; ++y) {
                float* line = target->GetLinePointer(y, tp);
                float* blocks = NZ == 1 ? s.blocks : line;
                std::fill_n(blocks, NX, 0.0f);
                for (uint32_t by = 0; by < S; ++by) {
                    const uint32_t row = y * S + by;
                    const float* source = s.plane + std::size_t{row <= halfH ? row : H - row} * W;
                    PsfKernels::AddRowBlocks(source, blocks, NX, S);
                }
                if (NZ != 1) {
                    PsfKernels::AddToPlaneSum(line, NX, parts);
                    continue;
                }
                for (uint32_t x = 0; x < NX; ++x)
                    line[x] += blocks[x];
            }
        };
        const auto squarePlane = [&](uint32_t p) {
            for (uint32_t y = 0; y < NY; ++y) {
                float* line = target->GetLinePointer(y, p);
                for (uint32_t x = 0; x < NX; ++x)
                    line[x] *= line[x];
            }
        };

        const int64_t count = static_cast<int64_t>(planes.size());
        if (NZ == 1) {
            for (uint32_t y = 0; y < NY; ++y)
                std::fill_n(target->GetLinePointer(y, 0), NX, 0.0f);
            // All planes land in target plane 0: they are added in plane order, whichever
            // thread computed them, so the sum doesn't depend on the thread count. Planes
            // are claimed in ascending order, so the one whose turn it is is always being
            // computed and the wait ends.
            std::atomic<int64_t> turn{0};
            cWorkerPool::ForEach(count, threads, [&](int64_t k, int worker) {
                const cScratch& s = scratch[worker];
                computePlane(planes[k], s);
                for (int64_t now; (now = turn.load(std::memory_order_acquire)) != k;)
                    turn.wait(now, std::memory_order_acquire);
                binPlane(s, 0, nullptr);
                turn.store(k + 1, std::memory_order_release);
                turn.notify_all();
            });
            if (confocal)
                squarePlane(0);
            return;
        }

        // Each plane is binned, scaled to sum 1 and, confocal, squared while it is still in
        // the cache; the sum of the scaled plane is kept for the axial weighting.
        const auto planeLine = [&](uint32_t p) {
            return [&, p](uint32_t y) { return target->GetLinePointer(y, p); };
        };
        std::vector<double> scaledSums(NZ, 0.0);
        cWorkerPool::ForEach(count, threads, [&](int64_t k, int worker) {
            const uint32_t p = planes[k];
            const cScratch& s = scratch[worker];
            computePlane(p, s);
            double parts[PsfKernels::kPlaneSumParts] = {};
            binPlane(s, p, parts);
            scaledSums[p] =
                ScalePlaneTo(NY, NX, planeLine(p), PsfKernels::PlaneSumTotal(parts), 1.0f);
            if (confocal)
                squarePlane(p);
        });
        // Without aberration the PSF is symmetric in z: the planes past the middle are
        // copies, for every modality.
        const auto mirrorPlanes = [&] {
            if (SA != 0.0f)
                return;
            ImageWalk::ForEachLine(targetSize, [&](uint32_t y, uint32_t p) {
                if (p > half)
                    std::memcpy(target->GetLinePointer(y, p), target->GetLinePointer(y, NZ - p),
                                sizeof(float) * NX);
            });
        };
        if (confocal) {
            mirrorPlanes();
            return;
        }

        // The first plane past the focus whose central row stays above a thousandth of the
        // peak out to a quarter of the width: from that depth on the PSF has spread over
        // much of the field, and the axial weighting below runs at least that far.
        uint32_t zEdge = 0;
        const float edgeLevel = 0.001f * target->GetLinePointer(0, 0)[0];
        for (uint32_t p : planes) {
            if (zEdge != 0)
                break;
            const float* row = target->GetLinePointer(0, p);
            uint32_t x = 0;
            while (x < NX && !(row[x] <= edgeLevel))
                ++x;
            if (x == NX)
                x = 0;
            if (x >= NX / 4)
                zEdge = p;
        }

        // Axial weighting: above an NA of 1 a plane far from focus keeps ever less light,
        // down to none at 1.4; up to 1 every plane keeps sum 1.
        const float depth = lambda / (n * 4.0f * halfAngleSine2);
        const float z0 = std::max(20.0f * depth, static_cast<float>(zEdge) * dz);
        float endWeight = 1.0f;
        if (NA >= 1.4f)
            endWeight = 0.0f;
        else if (NA > 1.0f)
            endWeight = 1.0f - (NA - 1.0f) / 0.3999999761581421f;
        cWorkerPool::ForEach(count, ImageWalk::ThreadsFor(targetSize.Voxels()),
                             [&](int64_t k, int) {
                                 const uint32_t p = planes[k];
                                 const uint32_t d = p <= half ? p : NZ - p;
                                 const float weight =
                                     1.0f + std::min(static_cast<float>(d) * dz, z0) *
                                                (endWeight - 1.0f) / z0;
                                 ScalePlaneTo(NY, NX, planeLine(p), scaledSums[p], weight);
                             });
        mirrorPlanes();
    });
}

void cImageMathGeneric::Generate3DGaussian(const cFloatImagePtr& image, float dx, float dy,
                                           float dz, float fwhmX, float fwhmY, float fwhmZ) {
    RequireImages("Generate3DGaussian", {&image});
    Guard([&] {
        const cImageDimensions size = image->GetDimensions();
        constexpr double kFwhmPerSigma = 2.35457;
        const float sigmaX = static_cast<float>(fwhmX / kFwhmPerSigma);
        const float sigmaY = static_cast<float>(fwhmY / kFwhmPerSigma);
        const float sigmaZ = static_cast<float>(fwhmZ / kFwhmPerSigma);
        const float peak = 1.0f / (std::pow(PsfPhase::kTwoPi, 1.5f) * sigmaX * sigmaY * sigmaZ);
        // The exponent terms of x, kept per column so that a line costs one exp per pixel.
        std::vector<float> termX(size.x);
        for (uint32_t x = 0; x < size.x; ++x) {
            const float u = static_cast<float>(SignedWrapDistance(x, size.x)) * dx;
            termX[x] = (u * u) / (2.0f * sigmaX * sigmaX);
        }
        const float sum = ImageWalk::ReduceLines(
            size, 0.0f,
            [&](uint32_t y, uint32_t z, float& partial) {
                float* line = image->GetLinePointer(y, z);
                const float v = static_cast<float>(SignedWrapDistance(y, size.y)) * dy;
                const float w = static_cast<float>(SignedWrapDistance(z, size.z)) * dz;
                const float termYZ = (v * v) / (2.0f * sigmaY * sigmaY);
                const float termZ = (w * w) / (2.0f * sigmaZ * sigmaZ);
                for (uint32_t x = 0; x < size.x; ++x) {
                    line[x] = peak * std::exp(-(termX[x] + termYZ + termZ));
                    partial += line[x];
                }
            },
            [](float& total, float piece) { total += piece; });
        const float scale = 1.0f / sum;
        ImageWalk::ForEachLine(size, [&](uint32_t y, uint32_t z) {
            float* line = image->GetLinePointer(y, z);
            for (uint32_t x = 0; x < size.x; ++x)
                line[x] *= scale;
        });
    });
}

void cImageMathGeneric::Generate3DHourglass(const cFloatImagePtr& image, float dx, float dy,
                                            float dz, float slope, float radius) {
    RequireImages("Generate3DHourglass", {&image});
    ForEachRadialPixel(*image, dx, dy, dz, [&](float& pixel, float r, float a, uint32_t) {
        pixel = r <= a * slope + radius ? 1.0f : 0.0f;
    });
}

void cImageMathGeneric::Generate3DDvorakHourGlass(const cFloatImagePtr& in,
                                                  const cFloatImagePtr& out, float dx, float dy,
                                                  float dz, float numericalAperture,
                                                  float refractiveIndex, float lambda, float factor,
                                                  bool flat) {
    RequireImages("Generate3DDvorakHourGlass", {&in, &out});
    RequireSameSize("Generate3DDvorakHourGlass", in, out);
    // The waist is the lateral resolution scaled by factor; the sides open with the
    // aperture angle of the objective.
    const float waist = static_cast<float>((factor * 0.61 * lambda) / numericalAperture);
    const float slope = std::tan(std::asin(numericalAperture / refractiveIndex));
    ForEachRadialPixel(*out, dx, dy, dz, [&](float& pixel, float r, float a, uint32_t) {
        const float limit = flat ? waist : a * slope + waist;
        pixel = r <= limit ? 1.0f : 0.0f;
    });
}

void cImageMathGeneric::GenerateCylinder(const cFloatImagePtr& image, float dx, float dy, float dz,
                                         float halfHeight, float radius, float value) {
    RequireImages("GenerateCylinder", {&image});
    const cImageDimensions size = image->GetDimensions();
    if (size.z == 0)
        return;
    // Slice 0 carries the cross-section; each other slice is a copy of it or empty.
    const bool inside0 = 0.0f <= halfHeight;
    ImageWalk::ForEachLine({size.x, size.y, 1}, [&](uint32_t y, uint32_t) {
        float* line = image->GetLinePointer(y, 0);
        const float lateralY = static_cast<float>(WrapDistance(y, size.y)) * dy;
        for (uint32_t x = 0; x < size.x; ++x) {
            const float lateralX = static_cast<float>(WrapDistance(x, size.x)) * dx;
            const float r = std::sqrt(lateralX * lateralX + lateralY * lateralY);
            line[x] = r <= radius && inside0 ? value : 0.0f;
        }
    });
    ImageWalk::ForEachLine(size, [&](uint32_t y, uint32_t z) {
        if (z == 0)
            return;
        float* line = image->GetLinePointer(y, z);
        const float a = static_cast<float>(WrapDistance(z, size.z)) * dz;
        if (a <= halfHeight)
            std::memcpy(line, image->GetLinePointer(y, 0), sizeof(float) * size.x);
        else
            std::fill_n(line, size.x, 0.0f);
    });
}

void cImageMathGeneric::FillCylinder(const cFloatImagePtr& image, float dx, float dy, float dz,
                                     float halfHeight, float radius, float value) {
    RequireImages("FillCylinder", {&image});
    ForEachRadialPixel(*image, dx, dy, dz, [&](float& pixel, float r, float a, uint32_t) {
        if (r <= radius && a <= halfHeight)
            pixel = value;
    });
}

void cImageMathGeneric::GenerateDoubleCone(const cFloatImagePtr& image, float dx, float dy,
                                           float dz, float slope, float value) {
    RequireImages("GenerateDoubleCone", {&image});
    ForEachRadialPixel(*image, dx, dy, dz, [&](float& pixel, float r, float a, uint32_t z) {
        pixel = r <= a * slope && z != 0 ? value : 0.0f;
    });
}

void cImageMathGeneric::FillDoubleCone(const cFloatImagePtr& image, float dx, float dy, float dz,
                                       float slope, float value) {
    RequireImages("FillDoubleCone", {&image});
    ForEachRadialPixel(*image, dx, dy, dz, [&](float& pixel, float r, float a, uint32_t z) {
        if (r <= a * slope && z != 0)
            pixel = value;
    });
}

void cImageMathGeneric::CreateDoubleTruncatedCone(const cFloatImagePtr& image, float dx, float dy,
                                                  float dz, float minimumZ, float slope,
                                                  float value, int mode) {
    RequireImages("CreateDoubleTruncatedCone", {&image});
    const bool clearOthers = mode == 2;
    ForEachRadialPixel(*image, dx, dy, dz, [&](float& pixel, float r, float a, uint32_t z) {
        if (r <= a * slope && z != 0 && a > minimumZ)
            pixel = value;
        else if (clearOthers)
            pixel = 0.0f;
    });
}

// ---- Brightest slice

void cImageMathGeneric::RetrievePsfCenteringBrightestSlice(const cFloatImagePtr& out,
                                                           const cFloatImagePtr& in) {
    const char* name = "RetrievePsfCenteringBrightestSlice";
    RequireImages(name, {&out, &in});
    const cImageDimensions from = in->GetDimensions();
    const cImageDimensions to = out->GetDimensions();
    if (!in->HasSameSliceSize(*out) || to.z > from.z)
        Fail(std::string("Invalid Dimensions in ") + name, OVD_ERR_PARAMETER);
    if (to.z == 0 || from.Voxels() == 0)
        return;
    Guard([&] {
        // The greatest pixel of each slice, then the first slice that holds the overall one.
        std::vector<float> sliceMaximum(from.z);
        ImageWalk::ForEachSlice(from, [&](uint32_t z) {
            float m = -3.4028235e38f;
            for (uint32_t y = 0; y < from.y; ++y) {
                const float* line = in->GetLinePointer(y, z);
                for (uint32_t x = 0; x < from.x; ++x)
                    m = std::max(m, line[x]);
            }
            sliceMaximum[z] = m;
        });
        uint32_t k = 0;
        for (uint32_t z = 1; z < from.z; ++z)
            if (sliceMaximum[z] > sliceMaximum[k])
                k = z;
        // The brightest slice lands in slice 0 of out, the ones after it above and the ones
        // before it in the last slices, as wrap-around order has them.
        const uint32_t Z = to.z, M = from.z;
        ImageWalk::ForEachLine(to, [&](uint32_t y, uint32_t i) {
            int64_t source = i < Z / 2 ? int64_t{k} + i : int64_t{k} + i - Z;
            if (source >= M)
                source -= M;
            else if (source < 0)
                source += M;
            std::memcpy(out->GetLinePointer(y, i),
                        in->GetLinePointer(y, static_cast<uint32_t>(source)), sizeof(float) * to.x);
        });
    });
}

// ---- Outlines of masks

void cImageMathGeneric::CalculateMaskPerimeter(const cFloatImagePtr& in,
                                               const cFloatImagePtr& out) {
    const char* name = "CalculateMaskPerimeter";
    if (in.IsNull() || out.IsNull())
        Fail(std::string("NULL input Mask in ") + name, OVD_ERR_PARAMETER);
    RequireSameSize(name, in, out);
    constexpr float kRegion = 250.0f;
    const cImageDimensions size = in->GetDimensions();
    // Slice by slice: a pixel of the region with a neighbour outside it marks those
    // neighbours 1; a pixel inside the region is cleared. Only neighbours are written, so
    // the slices are independent.
    ImageWalk::ForEachSlice(size, [&](uint32_t z) {
        for (uint32_t y = 0; y < size.y; ++y) {
            const float* line = in->GetLinePointer(y, z);
            for (uint32_t x = 0; x < size.x; ++x) {
                if (line[x] != kRegion)
                    continue;
                struct {
                    bool inside;
                    uint32_t x, y;
                } neighbours[4] = {{x > 0, x - 1, y},
                                   {x + 1 < size.x, x + 1, y},
                                   {y > 0, x, y - 1},
                                   {y + 1 < size.y, x, y + 1}};
                int regionNeighbours = 0;
                for (const auto& n : neighbours)
                    if (n.inside && in->GetLinePointer(n.y, z)[n.x] == kRegion)
                        ++regionNeighbours;
                if (regionNeighbours == 4) {
                    out->GetLinePointer(y, z)[x] = 0.0f;
                    continue;
                }
                for (const auto& n : neighbours)
                    if (n.inside && in->GetLinePointer(n.y, z)[n.x] != kRegion)
                        out->GetLinePointer(n.y, z)[n.x] = 1.0f;
            }
        }
    });
}

float cImageMathGeneric::CalculateMaskPerimeter(const cFloatImagePtr& mask, float dx, float dy) {
    if (mask.IsNull())
        Fail("NULL input Mask in CalculateMaskPerimeter", OVD_ERR_PARAMETER);
    return Guard([&] {
        const cImageDimensions size = mask->GetDimensions();
        // The chain of border pixels: the mask without the pixels whose four neighbours
        // are all in the mask.
        cFloatImagePtr border(new cFloatImage(size, Contiguous2D, GetObjectName()));
        const auto isOne = [&](const cFloatImagePtr& image, int64_t x, int64_t y, uint32_t z) {
            return x >= 0 && y >= 0 && x < size.x && y < size.y &&
                   image->GetLinePointer(static_cast<uint32_t>(y), z)[x] == 1.0f;
        };
        ImageWalk::ForEachLine(size, [&](uint32_t y, uint32_t z) {
            const float* source = mask->GetLinePointer(y, z);
            float* line = border->GetLinePointer(y, z);
            for (uint32_t x = 0; x < size.x; ++x) {
                const bool interior = source[x] == 1.0f && isOne(mask, int64_t{x} - 1, y, z) &&
                                      isOne(mask, int64_t{x} + 1, y, z) &&
                                      isOne(mask, x, int64_t{y} - 1, z) &&
                                      isOne(mask, x, int64_t{y} + 1, z);
                line[x] = interior ? 0.0f : source[x];
            }
        });

        // Each chain pixel contributes two half steps, one towards each chain neighbour,
        // chosen by the pattern of its eight neighbours; bit k stands for the k-th of
        // (−1,−1), (0,−1), (1,−1), (−1,0), (1,0), (−1,1), (0,1), (1,1).
        const float hx = dx / 2.0f, hy = dy / 2.0f;
        const float hd = std::sqrt(hx * hx + hy * hy);
        // clang-format off
        const auto halfSteps = [&](unsigned code) {
            switch (code) {
            case 0x88: case 0x0C: case 0x30: case 0x11: return hd + hx;
            case 0x22: case 0x82: case 0x41: case 0x44: return hd + hy;
            case 0x81: case 0x24: case 0x21: case 0x84: case 0xA0: case 0x05: return 2.0f * hd;
            case 0x48: case 0x50: case 0x0A: case 0x12: return hx + hy;
            case 0x18: return 2.0f * hx;
            case 0x42: return 2.0f * hy;
            default: return (hx + hy) / 2.0f + hd;
            }
        };
        // clang-format on
        constexpr int kOffsets[8][2] = {{-1, -1}, {0, -1}, {1, -1}, {-1, 0},
                                        {1, 0},   {-1, 1}, {0, 1},  {1, 1}};
        double length = 0.0;
        for (uint32_t z = 0; z < size.z; ++z)
            for (uint32_t y = 0; y < size.y; ++y) {
                const float* line = border->GetLinePointer(y, z);
                for (uint32_t x = 0; x < size.x; ++x) {
                    if (line[x] != 1.0f)
                        continue;
                    unsigned code = 0;
                    for (unsigned bit = 0; bit < 8; ++bit)
                        if (isOne(border, int64_t{x} + kOffsets[bit][0],
                                  int64_t{y} + kOffsets[bit][1], z))
                            code |= 1u << bit;
                    length += halfSteps(code);
                }
            }
        return static_cast<float>(length);
    });
}

} // namespace Ovidane
