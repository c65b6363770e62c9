#pragma once
#include <cstdint>
#include <string>

#include "core/cCountedPtr.h"
#include "core/cImageDimensions.h"
#include "decon/cPsfCache.h"
#include "decon/cPsfFirstGuess.h"

namespace Ovidane {

// The radial Bessel table of the theoretical PSF with the step it was made for. It depends
// on the PSF's size and optics but not on the aberration, so a caller that computes the
// PSFs of many aberrations for one size keeps one and hands it to each first guess.
struct cBesselTable {
    cFloatImagePtr values;
    double step = 0.0;
};

// The PSF of a microscope computed from its optics: a scalar Hankel integral over the pupil
// with a defocus term and a fourth-order spherical aberration term, evaluated plane by plane
// on a grid finer than the image's and binned down to it. Widefield, confocal and
// multi-photon modalities differ in the squaring of the planes and the axial weighting.
//
// Spacings and the wavelength share one unit, micrometres; a wavelength of 3.0 or more is
// taken as given in nanometres. The constructor refuses nothing loudly: the first parameter
// that is out of range ends it, and the object keeps that and every later field at its start
// value. Apply then refuses to compute.
class cTheoreticalPsfFirstGuessWithSphericalAberration : public cPsfFirstGuess {
public:
    cTheoreticalPsfFirstGuessWithSphericalAberration(float spacingX, float spacingY, float spacingZ,
                                                     const cImageDimensions& size,
                                                     float numericalAperture, float refractiveIndex,
                                                     float lambda, float sphericalAberration,
                                                     float axialScale, int modality);

    void SetFileName(const std::string& name) override { mFileName = name; }
    // Fills psf with the PSF at psf's size (the object's size when psf is empty), centred on
    // pixel (0,0,0) in wrap-around order and scaled to sum 1.
    void Apply(cFloatImagePtr& psf, cFloatImagePtr& original) override;
    // The process keeps the PSF as a restoration that only reads it prepared it, and lends it
    // to the next such restorations of the same optics and size (cPsfCache::LendPrepared).
    bool TakePrepared(cFloatImagePtr& psf, bool readOnly) override;
    void KeepPrepared(const cFloatImagePtr& psf, bool readOnly) override;

    // True when every parameter passed the constructor's checks.
    bool IsComplete() const { return mComplete; }
    float GetNumericalAperture() const { return mNumericalAperture; }
    float GetRefractiveIndex() const { return mRefractiveIndex; }
    // In micrometres.
    float GetWavelength() const { return mLambda; }
    const cImageDimensions& GetSize() const { return mSize; }
    // How many sub-pixels per image pixel and axis the lateral planes are computed on.
    unsigned GetOversampling() const;

    // Where the Bessel table is kept between first guesses: filled by the first PSF that
    // needs it, read by the later ones whose size and optics call for the same table, made
    // anew (and kept) when they call for another. The PSF is the same bit for bit.
    void UseBesselTable(const cCountedPtr<cBesselTable>& table) { mBesselTable = table; }

private:
    void Generate(const cFloatImagePtr& psf) const;
    cPsfCache::cKey KeyFor(const cImageDimensions& size) const;
    // Whether the process keeps this guess's PSFs: not for a caller that shares a Bessel
    // table, which computes the PSFs of many aberrations, each once.
    bool Kept() const { return mComplete && !mBesselTable; }

    std::string mFileName;
    float mSpacingX = 1.0f, mSpacingY = 1.0f, mSpacingZ = 1.0f;
    cImageDimensions mSize{1, 1, 1};
    float mNumericalAperture = 0.0f;
    float mRefractiveIndex = 0.0f;
    float mLambda = 0.0f;
    float mSphericalAberration = 0.0f;
    float mAxialScale = 1.0f;
    int mModality = 0;
    bool mComplete = false;
    cCountedPtr<cBesselTable> mBesselTable;
};

} // namespace Ovidane
