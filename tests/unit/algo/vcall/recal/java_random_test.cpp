#include "algo/vcall/recal/java_random.h"

#include <gtest/gtest.h>

namespace {

// What the generator's reference implementation gives, by seed: two uniform numbers, three Gaussian ones, a long.
TEST(JavaRandom, DrawsThePublishedSequence) {
  struct Known {
    int64_t seed;
    double uniform[2], gaussian[3];
    int64_t whole;
  };
  const Known cases[] = {{0,
                          {0.730967787376657, 0.24053641567148587},
                          {2.080920790428163, 0.7637707684364894, 0.9845745328825128},
                          7105486291024734541},
                         {42,
                          {0.7275636800328681, 0.6832234717598454},
                          {-0.9498666368908959, -1.1069902863993377, 0.2809776380727795},
                          6802844026563419272},
                         {-7,
                          {0.2691218093260761, 0.6731811902798038},
                          {0.07207057524014324, 1.1801067715873763, -0.8529129767446793},
                          -1849135647554627033},
                         {47382911,
                          {0.246167269299285, 0.4305006942747409},
                          {0.3245691215126965, -0.9206444338433659, -0.6004014126294749},
                          3943261984145342717}};
  for (const Known& known : cases) {
    JavaUtil::Random random(known.seed);
    for (double value : known.uniform) EXPECT_DOUBLE_EQ(random.nextDouble(), value) << known.seed;
    for (double value : known.gaussian) EXPECT_DOUBLE_EQ(random.nextGaussian(), value) << known.seed;
    EXPECT_EQ(random.nextLong(), known.whole) << known.seed;
  }
}

}  // namespace
