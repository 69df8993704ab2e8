// An array of pointers that may own what they point to.
#include "callorv/base/ptr_array.h"

#include <doctest/doctest.h>

#include <climits>
#include <memory>
#include <type_traits>
#include <vector>

#include "support/fail_alloc.h"

namespace {

// Notes that it is deleted.
struct T_Item : CPtrArrayItem {
  explicit T_Item(int& p_iDeleted) : piDeleted(&p_iDeleted) {}
  ~T_Item() override { ++*piDeleted; }
  int* piDeleted;
};

}    // namespace

static_assert(std::has_virtual_destructor<CPtrArrayItem>::value, "");
static_assert(!std::is_copy_constructible<CPtrArray>::value, "");

TEST_CASE("CPtrArray keeps the pointers in order") {
  int iDeleted = 0;
  std::vector<std::unique_ptr<T_Item>> apItem;
  CPtrArray ap(false);
  CHECK(ap.GetSize() == 0);
  for (int i = 0; i < 1000; ++i) {
    apItem.push_back(std::make_unique<T_Item>(iDeleted));
    ap.Add(i % 10 == 0 ? nullptr : apItem.back().get());
  }
  CHECK(ap.GetSize() == 1000);
  for (size_t i = 0; i < 1000; ++i) {
    REQUIRE(ap.GetAt(static_cast<int>(i)) == (i % 10 == 0 ? nullptr : apItem[i].get()));
  }
  for (const int i : {INT_MIN, -1, 1000, INT_MAX}) CHECK(ap.GetAt(i) == nullptr);
}

TEST_CASE("CPtrArray deletes its items only when it owns them") {
  for (const bool bOwn : {true, false}) {
    CAPTURE(bOwn);
    int iDeleted = 0;
    T_Item* apItem[3];
    {
      CPtrArray ap(bOwn);
      for (T_Item*& pItem : apItem) {
        pItem = new T_Item(iDeleted);
        ap.Add(pItem);
      }
      ap.Add(nullptr);
      ap.RemoveLast();    // the null
      CHECK(ap.GetSize() == 3);
      CHECK(iDeleted == 0);
      ap.RemoveLast();
      CHECK(ap.GetSize() == 2);
      CHECK(iDeleted == (bOwn ? 1 : 0));
      CHECK(ap.GetAt(1) == apItem[1]);
      CHECK(ap.GetAt(2) == nullptr);
    }
    CHECK(iDeleted == (bOwn ? 3 : 0));
    if (!bOwn) {
      for (T_Item* pItem : apItem) delete pItem;
    }
  }
}

TEST_CASE("CPtrArray::RemoveLast does nothing on an empty array") {
  CPtrArray ap(true);
  ap.RemoveLast();
  CHECK(ap.GetSize() == 0);
  int iDeleted = 0;
  ap.Add(new T_Item(iDeleted));
  ap.RemoveLast();
  ap.RemoveLast();
  CHECK(ap.GetSize() == 0);
  CHECK(iDeleted == 1);
}

TEST_CASE("CPtrArray: without memory the item stays with the caller") {
  int iDeleted = 0;
  const int iFailures = ForEachFailure([&iDeleted](CFailAlloc& p_cFail) {
    iDeleted = 0;
    std::vector<std::unique_ptr<T_Item>> apItem;
    for (int i = 0; i < 20; ++i) apItem.push_back(std::make_unique<T_Item>(iDeleted));
    CPtrArray ap(false);
    const bool bThrew = p_cFail.Run([&] {
      for (const auto& pItem : apItem) ap.Add(pItem.get());
    });
    CHECK(bThrew == p_cFail.HasFailed());
    CHECK((ap.GetSize() < 20) == bThrew);
    for (int i = 0; i < ap.GetSize(); ++i) CHECK(ap.GetAt(i) == apItem[static_cast<size_t>(i)].get());
    CHECK(iDeleted == 0);
  });
  CHECK(iFailures >= 2);
}

TEST_CASE("an owning CPtrArray that runs out of memory deletes each item once") {
  int iDeleted = 0;
  CFailAlloc cFail(1);
  {
    CPtrArray ap(true);
    auto pItem = std::make_unique<T_Item>(iDeleted);
    CHECK(cFail.Run([&] { ap.Add(pItem.get()); }));
    CHECK(ap.GetSize() == 0);
  }
  CHECK(iDeleted == 1);
}
