// The copier's full sample-count matrix: sources of 1 s, 59.99 s and 60 s at four rates,
// mono and stereo, to every compressed target. Prints a table of the samples in and out.
#include <gtest/gtest.h>

#include <cstdio>
#include <future>
#include <vector>

#include "audio/CodecTestUtil.h"
#include "tools/ShuttleMatrix.h"

using namespace shuttlematrix;

class SoundShuttleMatrix : public codectest::ScratchTest {};

TEST_F(SoundShuttleMatrix, EveryTargetKeepsEverySample) {
  struct Row {
    double dSecs;
    int iRate, iChannels;
    const Target* t;
    std::future<Result> r;
  };
  std::vector<Row> rows;
  for (double dSecs : {1.0, 59.99, 60.0})
    for (int iRate : {8000, 22050, 44100, 48000})
      for (int iChannels : {1, 2}) {
        const std::string sTag = std::to_string(iRate) + "_" + std::to_string(iChannels) + "_" +
                                 std::to_string(static_cast<int>(dSecs * 100));
        const std::string sSrc = P(sTag + ".wav");
        codectest::MakeToneWav(sSrc, iRate, iChannels, dSecs);
        // Two conversions at a time: the two cores of the machine.
        for (size_t i = 0; i < std::size(kTargets); i += 2) {
          std::vector<std::future<Result>> pair;
          for (size_t k = i; k < i + 2; ++k)
            pair.push_back(std::async(std::launch::async, Convert, Root(), sSrc, iRate, iChannels, kTargets[k],
                                      sTag + "_" + kTargets[k].ext));
          for (size_t k = 0; k < pair.size(); ++k) {
            pair[k].wait();
            rows.push_back(Row{dSecs, iRate, iChannels, &kTargets[i + k], std::move(pair[k])});
          }
        }
        std::remove(sSrc.c_str());
      }
  std::printf("%-6s %6s %3s %4s %6s %9s %9s %9s %6s %6s\n", "secs", "rate", "ch", "to", "to Hz", "in", "expected",
              "out", "extra", "limit");
  for (auto& row : rows) {
    Result r = row.r.get();
    SCOPED_TRACE(std::to_string(row.dSecs) + " s " + std::to_string(row.iRate) + " Hz " +
                 std::to_string(row.iChannels) + " ch to " + row.t->ext);
    std::printf("%-6.2f %6d %3d %4s %6d %9ld %9ld %9ld %6ld %6ld\n", row.dSecs, row.iRate, row.iChannels, row.t->ext,
                r.iRate, r.lIn, r.lExpect, r.lOut, r.lOut - r.lExpect,
                FrameSamples(*row.t, r.iRate) + FormatPadding(*row.t));
    ExpectEverySample(r, *row.t);
  }
}
