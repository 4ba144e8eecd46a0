// A page of a list: the counted header. Behind it, outside its length, come List Count bytes of fixed-width entries.
#pragma once

#include "orn/vesk/wire/row.h"

namespace vesk::wire {

struct ListPage {
  char caTranLen[6];
  char caTranId[5];
  char caReturnCode[5];
  char caMoreFlag[2];   // "Y" when a page follows
  char caListCount[6];  // bytes, not entries
};

inline constexpr auto kListPage = reply<ListPage>(
    field<&ListPage::caMoreFlag>(13, 1, "More Flag"), field<&ListPage::caListCount>(14, 5, "List Count"));

}  // namespace vesk::wire
