// The search for the best looking picture of so many bytes, over its scale and its quantisation.
//
// At a given size a smaller picture is quantised finer; in between lies the best one. The size is
// nearly a power of both, so that two encodes tell what the next one will take; how good a picture
// looks at the budget is a flat hill over the scale, which is climbed from a likely place.
//
// Pure: what it knows of pictures it is told by a codec.
#ifndef FIT_SEARCH_BUDGET_SEARCH_H
#define FIT_SEARCH_BUDGET_SEARCH_H

#include <cstdint>
#include <vector>

// How much of a search is likely to come yet; the last judgement is of what was kept.
struct SearchRest {
  double encodes = 0;
  double judgements = 0;
  double finishes = 0;
};

// What encodes and judges. An operation that returns false cannot go on; the search then ends.
class SearchCodec {
 public:
  virtual ~SearchCodec() = default;
  // The next coarseness that can be had: a format may have a hundred of them.
  virtual double nearest(double coarseness) const { return coarseness; }
  // Encodes the picture at a scale of 0 to 1 of each side, quantised so coarsely: as quickly as its
  // looks and about its size can be told.
  virtual bool encode(double scale, double coarseness, int64_t* bytes) = 0;
  // How alike the last encoded picture looks to the source, at most 1.
  virtual bool judge(double* similarity) = 0;
  // Makes of it what may come out, of so many bytes.
  virtual bool finish(int64_t* bytes) = 0;
  // That what was finished is the best so far within the budget.
  virtual void keep() = 0;
  // As judge(), of what was kept.
  virtual bool judgeKept(double* similarity) = 0;
  // Told behind each of them.
  virtual void expect(const SearchRest&) {}
};

struct SearchLimits {
  int64_t budgetBytes = 0;
  double pixels = 0;  // of the whole picture, at scale 1
  double leastScale = 0;
  double mostScale = 1;
  double finest = 0;  // coarseness
  double coarsest = 0;
};

class BudgetSearch {
 public:
  // An encode costs some tens of milliseconds; nothing good takes more of them.
  static constexpr int kMostEncodes = 32;
  // Fuller than that a picture does not look better; one of few bytes still does, and costs little.
  static constexpr double kFullEnough = 0.975;
  static constexpr double kFullEnoughOfFew = 0.99;

  BudgetSearch(const SearchLimits& searchLimits, SearchCodec* searchCodec)
      : limits(searchLimits), codec(searchCodec) {}

  // True when something was kept. False when nothing is small enough, or the codec could not go on.
  bool run();

  // After run(): of what was kept.
  double similarity() const { return keptSimilarity; }
  double coarseness() const { return best.coarseness; }
  // When nothing was kept: the least that was seen, and can be asked for.
  int64_t smallestBytes() const { return smallest; }
  int encodes() const { return static_cast<int>(trials.size()); }

 private:
  struct Trial {
    double scale = 0;
    double coarseness = 0;
    int64_t bytes = 0;
    bool isFinished = false;  // its bytes are no estimate
    double similarity = -1;   // not judged
    double atBudget = -1;     // what it would be if the budget were just met
  };

  bool encode(double scale, double coarseness);
  void expectAfterEncode();
  bool judgeLast();
  bool hasFew() const;
  double fullEnough() const { return hasFew() ? kFullEnoughOfFew : kFullEnough; }
  double aimedBytes() const;
  bool isLikelyWithin(const Trial& trial) const;
  bool finishLast();
  bool keepLast();
  const Trial& nearestTo(double scale, double coarseness) const;
  double predict(const Trial& from, double scale, double coarseness) const;
  void learn(const Trial& trial);
  double coarsenessFor(double scale) const;
  double scaleFor(double coarseness) const;
  double clampScale(double scale) const;
  double likelyCoarseness() const;
  bool findStart();
  bool tryScale(double scale, Trial* trial);
  Trial climb(Trial start);
  void fill(double scale);
  bool shrinkToFit();

  const SearchLimits limits;
  SearchCodec* const codec;
  std::vector<Trial> trials;
  Trial best;
  double keptSimilarity = 0;
  int64_t smallest = 0;
  // Bytes grow with the pixels and shrink with the coarseness by these powers, about.
  double pixelPower = 0.8;
  double coarsenessPower = 0.6;
  SearchRest rest;
  bool isFilling = false;
  bool isBroken = false;
};

#endif
