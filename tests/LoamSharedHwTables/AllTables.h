// Every table of the bundle, for tests that hold for all.
#pragma once

#include <gtest/gtest.h>

#include <random>
#include <tuple>

#include "LoamSharedHwTables/Qumran3a/BigAds1HwMdb.h"
#include "LoamSharedHwTables/Qumran3a/BigAds3HwMdb.h"
#include "LoamSharedHwTables/Qumran3a/BigAds4HwMdb.h"
#include "LoamSharedHwTables/Qumran3a/BigAdsHwMdb.h"
#include "LoamSharedHwTables/Qumran3a/BigBb1HwMdb.h"
#include "LoamSharedHwTables/Qumran3a/BigBb3HwMdb.h"
#include "LoamSharedHwTables/Qumran3a/BigBb4HwMdb.h"
#include "LoamSharedHwTables/Qumran3a/BigBbHwMdb.h"
#include "LoamSharedHwTables/Qumran3a/BigBbXlHwMdb.h"
#include "LoamSharedHwTables/Qumran3a/EgrAddHdrProfMapHwDirect.h"
#include "LoamSharedHwTables/Qumran3a/EmAccessCmdHwDirect.h"
#include "LoamSharedHwTables/Qumran3a/EsemDefaultResultHwDirect.h"
#include "LoamSharedHwTables/Qumran3a/EsemFodoPortCvidEm.h"
#include "LoamSharedHwTables/Qumran3a/EtppbTrapForwardActionTableHwDirect.h"
#include "LoamSharedHwTables/Qumran3a/InAcSVlanHwEm.h"
#include "LoamSharedHwTables/Qumran3a/InAcUntaggedHwEm.h"
#include "LoamSharedHwTables/Qumran3a/Ip4UdpTtMpIsemHwEm.h"
#include "LoamSharedHwTables/Qumran3a/IpkgvHwDirect.h"
#include "LoamSharedHwTables/Qumran3a/IppeRecycFwdProfileMappingHwReg.h"
#include "LoamSharedHwTables/Qumran3a/ItppSniffSysHdrInfoHwDirect.h"
#include "LoamSharedHwTables/Qumran3a/MainHdrProfMapHwDirect.h"
#include "LoamSharedHwTables/Qumran3a/MplsIsemHwEm.h"
#include "LoamSharedHwTables/Qumran3a/SmallAdsA1HwDirect.h"
#include "LoamSharedHwTables/Qumran3a/SmallAdsB1HwDirect.h"
#include "LoamSharedHwTables/Qumran3a/SmallAdsB2HwDirect.h"
#include "LoamSharedHwTables/Qumran3a/SmallAdsHwDirect.h"
#include "LoamSharedHwTables/Qumran3a/SmallBbBHwDirect.h"
#include "LoamSharedHwTables/Qumran3a/SmallBbHwDirect.h"
#include "LoamSharedHwTables/Qumran3a/SrcAddrMapHwDirect.h"
#include "LoamSharedHwTables/Qumran3a/Srv6LocalSidIsemHwEm.h"
#include "LoamSharedHwTables/Qumran3a/TcamBHwDirect.h"
#include "LoamSharedHwTables/Qumran3a/TcamHwDirect.h"
#include "LoamSharedHwTables/Qumran3a/VsiToVniEsemHwEm.h"
#include "LoamSharedHwTables/Qumran3a/VttInPpPortConfig0HwDirect.h"
#include "LoamSharedHwTables/Qumran3a/XlKapsDirect1HwMdb.h"
#include "LoamSharedHwTables/Qumran3a/XlKapsDirect2HwMdb.h"

namespace TestSupport {

template <class... Tables>
struct TableList {
  using Types = testing::Types<Tables...>;

  template <class Visit>
  static void forEach(Visit&& visit) {
    (visit.template operator()<Tables>(), ...);
  }
};

template <class... Lists>
struct JoinedLists;
template <class... Tables>
struct JoinedLists<TableList<Tables...>> {
  using List = TableList<Tables...>;
};
template <class... First, class... Second, class... Rest>
struct JoinedLists<TableList<First...>, TableList<Second...>, Rest...>
    : JoinedLists<TableList<First..., Second...>, Rest...> {};
template <class... Lists>
using Joined = typename JoinedLists<Lists...>::List;

using ArrayKeyTables = TableList<bcm88490_a0::TcamHwDirect, bcm88490_a0::TcamBHwDirect,
                                 bcm88490_a0::SmallBbHwDirect, bcm88490_a0::SmallBbBHwDirect>;
using DirectValueKeyTables =
    TableList<bcm88490_a0::SmallAdsHwDirect, bcm88490_a0::SmallAdsA1HwDirect, bcm88490_a0::SmallAdsB1HwDirect,
              bcm88490_a0::SmallAdsB2HwDirect, bcm88490_a0::VttInPpPortConfig0HwDirect,
              bcm88490_a0::MainHdrProfMapHwDirect, bcm88490_a0::EmAccessCmdHwDirect,
              bcm88490_a0::EgrAddHdrProfMapHwDirect, bcm88490_a0::SrcAddrMapHwDirect,
              bcm88490_a0::IpkgvHwDirect, bcm88490_a0::EsemDefaultResultHwDirect,
              bcm88490_a0::EtppbTrapForwardActionTableHwDirect, bcm88490_a0::ItppSniffSysHdrInfoHwDirect>;
using ExactMatchTables =
    TableList<bcm88490_a0::MplsIsemHwEm, bcm88490_a0::Srv6LocalSidIsemHwEm, bcm88490_a0::EsemFodoPortCvidEm,
              bcm88490_a0::InAcSVlanHwEm, bcm88490_a0::InAcUntaggedHwEm, bcm88490_a0::Ip4UdpTtMpIsemHwEm,
              bcm88490_a0::VsiToVniEsemHwEm>;
using RegisterTables = TableList<bcm88490_a0::IppeRecycFwdProfileMappingHwReg>;
using MdbTables = TableList<bcm88490_a0::BigAdsHwMdb, bcm88490_a0::BigAds1HwMdb, bcm88490_a0::BigAds3HwMdb,
                            bcm88490_a0::BigAds4HwMdb, bcm88490_a0::BigBbHwMdb, bcm88490_a0::BigBb1HwMdb,
                            bcm88490_a0::BigBb3HwMdb, bcm88490_a0::BigBb4HwMdb, bcm88490_a0::BigBbXlHwMdb,
                            bcm88490_a0::XlKapsDirect1HwMdb, bcm88490_a0::XlKapsDirect2HwMdb>;

using DirectTables = Joined<ArrayKeyTables, DirectValueKeyTables>;
using ValueKeyTables = Joined<DirectValueKeyTables, RegisterTables, MdbTables>;
using AllTables = Joined<DirectTables, ExactMatchTables, RegisterTables, MdbTables>;

// Calls visit<Record>(view class or "") for each class of the table that has fields.
template <class Table, class Visit>
void forEachFieldClass(Visit&& visit) {
  visit.template operator()<typename Table::Entry>("");
}
template <class Table, class Visit>
  requires requires { typename Table::MdbkKapsaRpbCommandEntry; }
void forEachFieldClass(Visit&& visit) {
  visit.template operator()<typename Table::MdbkKapsaRpbCommandEntry>("MdbkKapsaRpbCommandEntry");
  visit.template operator()<typename Table::MdbkKapsaRpbEntry>("MdbkKapsaRpbEntry");
  visit.template operator()<typename Table::MdbkKapsaRpbCompareReplyEntry>("MdbkKapsaRpbCompareReplyEntry");
  visit.template operator()<typename Table::MdbkKapsaRpbReadReplyEntry>("MdbkKapsaRpbReadReplyEntry");
}
template <class Table, class Visit>
  requires requires { typename Table::MdbkKapsbRpbCommandEntry; }
void forEachFieldClass(Visit&& visit) {
  visit.template operator()<typename Table::MdbkKapsbRpbCommandEntry>("MdbkKapsbRpbCommandEntry");
  visit.template operator()<typename Table::MdbkKapsbRpbEntry>("MdbkKapsbRpbEntry");
  visit.template operator()<typename Table::MdbkKapsbRpbCompareReplyEntry>("MdbkKapsbRpbCompareReplyEntry");
  visit.template operator()<typename Table::MdbkKapsbRpbReadReplyEntry>("MdbkKapsbRpbReadReplyEntry");
}

// Any key of an exact-match table.
template <class Key>
Key randomFieldKey(std::mt19937_64& random) {
  auto const fill = [&random]<class Member>(Member& member) {
    if constexpr (Orlo::isBounded<Member>) {
      member = Member::fromBits(random() & Member::max().value());
    } else {
      member = static_cast<Member>(random());
    }
  };
  Key key;
  std::apply([&fill](auto&... members) { (fill(members), ...); }, Key::members(key));
  return key;
}

}  // namespace TestSupport
