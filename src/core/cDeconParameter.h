#pragma once
#include <array>
#include <cassert>
#include <cstdint>
#include <string>

#include "core/DeconKeys.h"
#include "core/cOvdObject.h"

namespace Ovidane {

// The typed settings of one run: six fixed arrays indexed by the DEC_* keys. Everything
// starts empty or 0; a flag nobody set stays 0 and selects no named option. Only SetFlag
// checks its input; every other key is the caller's business (asserted in debug builds).
class cDeconParameter : public cOvdObject {
public:
    cDeconParameter();
    cDeconParameter(const cDeconParameter& source) = default;
    cDeconParameter& operator=(const cDeconParameter& source) = default;

    std::string& GetString(DecStringKey key) { return mStrings[Checked(key, kDecStringKeyCount)]; }
    const std::string& GetString(DecStringKey key) const {
        return mStrings[Checked(key, kDecStringKeyCount)];
    }
    void SetString(DecStringKey key, const std::string& value) { GetString(key) = value; }

    int32_t& GetInt(DecIntKey key) { return mInts[Checked(key, kDecIntKeyCount)]; }
    const int32_t& GetInt(DecIntKey key) const { return mInts[Checked(key, kDecIntKeyCount)]; }
    void SetInt(DecIntKey key, int32_t value) { GetInt(key) = value; }

    int64_t& GetInt64(DecInt64Key key) { return mInt64s[Checked(key, kDecInt64KeyCount)]; }
    const int64_t& GetInt64(DecInt64Key key) const {
        return mInt64s[Checked(key, kDecInt64KeyCount)];
    }
    void SetInt64(DecInt64Key key, int64_t value) { GetInt64(key) = value; }

    float& GetReal(DecRealKey key) { return mReals[Checked(key, kDecRealKeyCount)]; }
    const float& GetReal(DecRealKey key) const { return mReals[Checked(key, kDecRealKeyCount)]; }
    void SetReal(DecRealKey key, float value) { GetReal(key) = value; }

    int32_t GetFlag(DecFlagKey key) const { return mFlags[Checked(key, kDecFlagKeyCount)]; }
    // Stores `value` when it lies in the key's accepted range and silently keeps the old
    // value otherwise; a key outside 1 to 15 fails with "Invalid Flag Parameter".
    void SetFlag(DecFlagKey key, int32_t value);

    bool& GetBool(DecBoolKey key) { return mBools[Checked(key, kDecBoolKeyCount)]; }
    const bool& GetBool(DecBoolKey key) const { return mBools[Checked(key, kDecBoolKeyCount)]; }
    void SetBool(DecBoolKey key, bool value) { GetBool(key) = value; }

private:
    static std::size_t Checked(int32_t key, int count) {
        assert(key >= 0 && key < count && "DEC_* key outside its enumeration");
        (void)count;
        return static_cast<std::size_t>(key);
    }

    std::array<std::string, kDecStringKeyCount> mStrings{};
    std::array<int32_t, kDecIntKeyCount> mInts{};
    std::array<int64_t, kDecInt64KeyCount> mInt64s{};
    std::array<float, kDecRealKeyCount> mReals{};
    std::array<int32_t, kDecFlagKeyCount> mFlags{};
    std::array<bool, kDecBoolKeyCount> mBools{};
};

} // namespace Ovidane
