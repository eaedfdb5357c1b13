#pragma once

/// Registers by the addresses at which clients find them.

#include <algorithm>
#include <cstdint>
#include <span>
#include <tuple>
#include <utility>
#include <vector>

namespace Tarn {

/// A register at one address, in one combination of its selectors.
struct Place {
  std::uint32_t address;
  std::uint32_t last;         ///< the last byte of the last word that it reaches into
  std::uint32_t reg;          ///< number of the register
  std::uint32_t combination;  ///< of the selectors that its address follows

  bool SameAs(const Place& other) const { return address == other.address && reg == other.reg; }
};

/// Finds the places in a range of bytes in logarithmic time, also where places overlap.
class PlaceIndex {
 public:
  PlaceIndex() = default;
  explicit PlaceIndex(std::vector<Place> places) : places_(std::move(places)), reach_(places_.size()) {
    std::ranges::sort(places_, {}, [](const Place& place) {
      return std::tuple(place.address, place.reg, place.combination);
    });
    Reach(0, places_.size());
  }

  const std::vector<Place>& Places() const { return places_; }

  /// Calls `use` for each register with a byte in `first`..`last`, by address, then by number, with its
  /// places there: more than one when several combinations lead to the same address.
  template <class Use>
  void ForEach(std::uint32_t first, std::uint32_t last, Use&& use) const {
    Search(0, places_.size(), first, last, use);
  }

 private:
  // The sorted places are a balanced tree: the middle one of a range is the root of what lies left and right.

  std::uint32_t Reach(std::size_t begin, std::size_t end) {
    if (begin == end) return 0;
    const std::size_t middle = begin + (end - begin) / 2;
    const std::uint32_t children = std::max(Reach(begin, middle), Reach(middle + 1, end));
    return reach_[middle] = std::max(places_[middle].last, children);
  }

  template <class Use>
  void Search(std::size_t begin, std::size_t end, std::uint32_t first, std::uint32_t last, Use& use) const {
    if (begin == end) return;
    const std::size_t middle = begin + (end - begin) / 2;
    if (reach_[middle] < first) return;
    Search(begin, middle, first, last, use);
    const Place& place = places_[middle];
    if (place.address > last) return;
    const bool first_of_its_kind = middle == 0 || !places_[middle - 1].SameAs(place);
    if (place.last >= first && first_of_its_kind) use(SameFrom(middle));
    Search(middle + 1, end, first, last, use);
  }

  std::span<const Place> SameFrom(std::size_t begin) const {
    std::size_t end = begin + 1;
    while (end < places_.size() && places_[end].SameAs(places_[begin])) ++end;
    return std::span(places_).subspan(begin, end - begin);
  }

  std::vector<Place> places_;
  std::vector<std::uint32_t> reach_;  ///< for each place the last byte of all below it in the tree
};

}  // namespace Tarn
