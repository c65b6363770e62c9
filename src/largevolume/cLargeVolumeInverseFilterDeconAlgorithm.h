#pragma once
#include <cstddef>
#include <cstdint>
#include <vector>

#include "core/cCountedPtr.h"
#include "core/cDeconLog.h"
#include "core/cOvdObject.h"
#include "decon/cTheoreticalPsfFirstGuessWithSphericalAberration.h"
#include "image/cOvdImage.h"
#include "largevolume/SubvolumeLogList.h"

namespace Ovidane {

class cImageStatistics;
class cInverseFilterDeconAlgorithm;
class cSubvoluming;

// The objective of the spherical aberration search: a whole-stack restoration reduced to
// one number. The stack is cut into subvolumes once (Prepare); each Evaluate restores every
// subvolume with the inverse filter at the aberration that stands in the shared log and
// scores the results. The subvolume input files stay in place between evaluations, so the
// caller sets DEC_BPARAMS_DELETE_ORIGINAL_FILE to false before Prepare; every subvolume's
// log inherits it from the cut.
//
// The figure of merit: with r_i the value range of restored subvolume i and S_i the sum of
// its pixels scaled to 0..1, it is the sum of S_i * r_i^2 over all subvolumes divided by
// the largest r_i^2. A subvolume with little contrast counts for little; a stack in one
// piece scores S_1. Guard bands count: the whole padded subvolume is scored.
//
// What does not change from one subvolume or evaluation to the next is made once: the PSF
// of each evaluation is made for the first subvolume and copied for the others, and the
// transform of each subvolume's image, which does not depend on the aberration, is kept
// from the first evaluation as far as the run's spare memory allows (GetSpareRunMemory).
// The figure of merit is the same bit for bit either way. So is it when the search keeps,
// with each kept transform, the image's plane that K is estimated from and its raw sum (so
// that later evaluations don't read the subvolume's file again), and the radial
// Bessel table of the theoretical PSF, which depends on the size and not on the aberration.
class cLargeVolumeInverseFilterDeconAlgorithm : public cOvdObject {
public:
    // `log` describes the whole stack; its SUBVOLUME_WIDTH/HEIGHT/DEPTH are the stack's size.
    explicit cLargeVolumeInverseFilterDeconAlgorithm(cCountedPtr<cDeconLog> log);
    // Deletes the subvolume files (CleanUp).
    ~cLargeVolumeInverseFilterDeconAlgorithm() override;

    // Cuts the stack: statistics pass, the cut, one preprocessed file per subvolume. A
    // second call cuts anew. 0, or the code of the cut (1 no log or no cut, 5 no disk).
    int32_t Prepare();

    // Restores every subvolume at the log's current DEC_RPARAMS_SPHERICAL_ABERRATION and
    // leaves the figure of merit in GetResult(). Always 0: failures are exceptions.
    int32_t Evaluate();

    double GetResult() const { return mResult; }

    // With false, the subvolumes' restorations stay in memory and no result file is
    // written: what the search needs is the figure of merit, and each evaluation would
    // otherwise write the whole stack once. Blend then has nothing to join and fails.
    void SetWritesResultFiles(bool writes) { mWritesResultFiles = writes; }

    // Joins the subvolume results of the latest Evaluate into DEC_SPARAMS_OUTPUT_IMAGE_FILE
    // of the log, as a restoration run does. The search itself does not need it.
    uint16_t Blend();

    // Deletes the subvolume files (inputs and the latest results) and forgets the cut.
    void CleanUp();

    // How many subvolumes of the cut have their image transform kept between evaluations:
    // the first ones, as many as the spare memory holds.
    std::size_t GetKeptSpectrumCount() const { return mImageSpectra.size(); }

    // The subvolume logs of the cut; empty before Prepare and after CleanUp.
    const cSubvolumeLogList& GetSubvolumeLogs() const { return mSubvolumeLogs; }

    // One restored subvolume's contribution: adds S * r^2 to `sum` and answers r, the value
    // range. `image` stays as it is. A flat image (r = 0) adds nothing, since it has no
    // range to scale by.
    static float AccumulateFigureOfMerit(const cFloatImagePtr& image, double& sum);
    // The final division by the largest range squared; a stack without any contrast
    // scores 0, so that the search still gets a number to compare.
    static double FinishFigureOfMerit(double sum, float largestRange);

private:
    void PlanSpareMemory();

    double mResult = 0.0;
    int32_t mWidth = 0, mHeight = 0, mDepth = 0;
    bool mMemoryPrepared = false;
    bool mSharePsf = false;
    bool mWritesResultFiles = true;
    cCountedPtr<cSubvoluming> mSubvoluming;
    cCountedPtr<cDeconLog> mLog;
    cSubvolumeLogList mSubvolumeLogs;
    cCountedPtr<cImageStatistics> mStatistics;
    cCountedPtr<cInverseFilterDeconAlgorithm> mAlgorithm;
    std::vector<cFloatImagePtr> mImageSpectra;
    // Whether each kept transform has been made; only a finished restoration sets it.
    std::vector<bool> mSpectrumFilled;
    // The sum over z of each kept subvolume's interior planes, for the estimate of K.
    std::vector<cFloatImagePtr> mImagePlanes;
    // The sum of each kept subvolume's raw data, for its non-negativity step: with the
    // transform, the plane and the sum kept, later evaluations read no subvolume file.
    std::vector<float> mRawSums;
    cCountedPtr<cBesselTable> mBesselTable;
};

} // namespace Ovidane
