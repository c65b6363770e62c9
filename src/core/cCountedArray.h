#pragma once
#include <vector>

#include "core/cCountedPtr.h"

namespace Ovidane {

// A shared array of plain values (profiles, histograms, look-up tables), held like every
// other shared object.
template <class T> using cCountedArray = cCountedPtr<std::vector<T>>;

template <class T> cCountedArray<T> MakeCountedArray(std::size_t size, T value = T{}) {
    return cCountedArray<T>(new std::vector<T>(size, value));
}

} // namespace Ovidane
