// Generated classes, filled from messages and turned into messages.
#include <doctest/doctest.h>

#include <callorv/callorv.hpp>
#include <memory>
#include <string>

#include "every_msg.h"
#include "left_msg.h"
#include "odd_names_msg.h"

static void LoadDictionary() {
  static const bool s_bLoaded = [] {
    MA_GetMsgDic()->InitDictionary(TEST_DICTIONARY);
    return true;
  }();
  REQUIRE(s_bLoaded);
}

static std::string Xml(CMsgBase& p_cTyped) {
  const std::unique_ptr<CMsg> pMsg(p_cTyped.CreateMsg());
  REQUIRE(pMsg != nullptr);
  CStream stXml(0, 512);
  pMsg->ToXml(&stXml, false, false, 1);
  std::string sXml(stXml.GetData(), static_cast<size_t>(stXml.GetSize()));
  return sXml.substr(sXml.find("?>") + 2);
}

static std::unique_ptr<CMsg> Message(std::string p_sXml) {
  std::unique_ptr<CMsg> pMsg(new CMsg(0, 0, 0, MA_GetMsgDic()));
  REQUIRE(pMsg->LoadXml(p_sXml.data()) == 0);
  return pMsg;
}

static msgs::CEvery Full() {
  msgs::CEvery cEvery;
  cEvery.text.Set("some text");
  cEvery.number.Set(-7);
  cEvery.ratio.Set(2.5);
  cEvery.flag.Set(false);
  cEvery.day.Set("20260131");
  cEvery.node.Make().label.Set("one");
  cEvery.texts = {"a", "b"};
  cEvery.numbers = {1, 0, -2147483647 - 1};
  cEvery.ratios = {0.0, -1e300};
  cEvery.flags = {true, false, true};
  cEvery.days = {"20260101", "20260102"};
  cEvery.nodes.resize(2);
  cEvery.nodes[0].label.Set("first");
  cEvery.nodes[1].label.Set("second");
  return cEvery;
}

static const char s_szFull[] =
    "<msg no=\"4\" ver=\"\"><t1><![CDATA[some text]]></t1><t2>-7</t2><t3>2.500000000000000e+00</t3><t4>false</t4>"
    "<t5>20260131</t5><t6><t0><![CDATA[one]]></t0></t6><t11><![CDATA[a]]></t11><t11><![CDATA[b]]></t11>"
    "<t12>1</t12><t12>0</t12><t12>-2147483648</t12><t13>0.000000000000000e+00</t13><t13>-1.000000000000000e+300</t13>"
    "<t14>true</t14><t14>false</t14><t14>true</t14><t15>20260101</t15><t15>20260102</t15>"
    "<t16><t0><![CDATA[first]]></t0></t16><t16><t0><![CDATA[second]]></t0></t16></msg>";

TEST_CASE("every type is written, in the dictionary's order") {
  LoadDictionary();
  msgs::CEvery cEvery = Full();
  CHECK(Xml(cEvery) == s_szFull);
  CHECK(cEvery.sLastError == "");
}

TEST_CASE("every type is read") {
  LoadDictionary();
  msgs::CEvery cEvery;
  REQUIRE(cEvery.LoadFromMsg(Message(s_szFull).get()) == 0);
  CHECK(cEvery.text.Get() == "some text");
  CHECK(cEvery.number.Get() == -7);
  CHECK(cEvery.ratio.Get() == 2.5);
  CHECK(cEvery.flag.IsSet());
  CHECK_FALSE(cEvery.flag.Get());
  CHECK(std::string(cEvery.day.ToStr()) == "20260131");
  REQUIRE(cEvery.node.IsSet());
  CHECK(cEvery.node->label.Get() == "one");
  REQUIRE(cEvery.texts.size() == 2);
  CHECK(cEvery.texts[1] == "b");
  CHECK(cEvery.numbers == std::vector<int>{1, 0, -2147483647 - 1});
  CHECK(cEvery.ratios == std::vector<double>{0.0, -1e300});
  CHECK(cEvery.flags == std::vector<bool>{true, false, true});
  REQUIRE(cEvery.days.size() == 2);
  CHECK(std::string(cEvery.days[1].ToStr()) == "20260102");
  REQUIRE(cEvery.nodes.size() == 2);
  CHECK(cEvery.nodes[1].label.Get() == "second");
  CHECK(Xml(cEvery) == s_szFull);
}

TEST_CASE("nothing set is nothing written") {
  LoadDictionary();
  msgs::CEvery cEvery;
  CHECK(Xml(cEvery) == "<msg no=\"4\" ver=\"\"></msg>");
  cEvery.text.Set("");            // an empty text, an unset date and a message without values count as absent
  cEvery.texts = {"", "x", ""};
  cEvery.days.resize(1);
  cEvery.node.Make();
  cEvery.nodes.resize(3);
  CHECK(Xml(cEvery) == "<msg no=\"4\" ver=\"\"><t11><![CDATA[x]]></t11></msg>");
}

TEST_CASE("what a message does not have becomes absent") {
  LoadDictionary();
  msgs::CEvery cEvery = Full();
  REQUIRE(cEvery.LoadFromMsg(Message("<msg no=\"4\"/>").get()) == 0);
  CHECK_FALSE(cEvery.text.IsSet());
  CHECK_FALSE(cEvery.number.IsSet());
  CHECK_FALSE(cEvery.ratio.IsSet());
  CHECK_FALSE(cEvery.flag.IsSet());
  CHECK_FALSE(cEvery.day.IsSet());
  CHECK_FALSE(cEvery.node.IsSet());
  CHECK(cEvery.texts.empty());
  CHECK(cEvery.numbers.empty());
  CHECK(cEvery.ratios.empty());
  CHECK(cEvery.flags.empty());
  CHECK(cEvery.days.empty());
  CHECK(cEvery.nodes.empty());
}

TEST_CASE("an empty row is read as a row") {
  LoadDictionary();
  msgs::CEvery cEvery;
  REQUIRE(cEvery.LoadFromMsg(Message("<msg no=\"4\"><t16></t16><t16><t0>x</t0></t16><t6/></msg>").get()) == 0);
  REQUIRE(cEvery.nodes.size() == 2);
  CHECK_FALSE(cEvery.nodes[0].label.IsSet());
  CHECK(cEvery.nodes[1].label.Get() == "x");
  CHECK(cEvery.node.IsSet());
}

TEST_CASE("copies are deep, and moves leave nothing shared") {
  LoadDictionary();
  msgs::CEvery cFirst = Full();
  msgs::CEvery cCopy(cFirst), cAssigned;
  cAssigned = cFirst;
  cFirst.node->label.Set("changed");
  cFirst.nodes[0].label.Set("changed");
  CHECK(Xml(cCopy) == s_szFull);
  CHECK(Xml(cAssigned) == s_szFull);
  msgs::CEvery cMoved(std::move(cCopy));
  CHECK(Xml(cMoved) == s_szFull);
  cAssigned = std::move(cMoved);
  CHECK(Xml(cAssigned) == s_szFull);
  msgs::CEvery& cSelf = cAssigned;
  cAssigned = cSelf;
  CHECK(Xml(cAssigned) == s_szFull);
}

TEST_CASE("a message may hold itself, directly and by way of another") {
  LoadDictionary();
  msgs::CNode cNode;
  cNode.label.Set("root");
  cNode.next.Make().next.Make().label.Set("third");
  cNode.children.resize(1);
  cNode.children[0].children.resize(1);
  cNode.children[0].children[0].label.Set("leaf");
  const std::string sNode =
      "<msg no=\"1\" ver=\"\"><t0><![CDATA[root]]></t0><t1><t1><t0><![CDATA[third]]></t0></t1></t1>"
      "<t2><t2><t0><![CDATA[leaf]]></t0></t2></t2></msg>";
  CHECK(Xml(cNode) == sNode);
  msgs::CNode cAgain;
  REQUIRE(cAgain.LoadFromMsg(Message(sNode).get()) == 0);
  CHECK(Xml(cAgain) == sNode);

  msgs::CLeft cLeft;
  cLeft.rights.resize(1);
  cLeft.rights[0].value.Set(1);
  cLeft.rights[0].lefts.resize(1);
  cLeft.rights[0].lefts[0].mate.Make().value.Set(2);
  CHECK(Xml(cLeft) == "<msg no=\"2\" ver=\"\"><t1><t1><t2><t2>2</t2></t2></t1><t2>1</t2></t1></msg>");
}

TEST_CASE("sub-messages know their place") {
  LoadDictionary();
  msgs::CEvery cEvery;
  cEvery.nodes.resize(1);
  cEvery.nodes[0].next.Make().label.Set("x");
  const std::unique_ptr<CMsg> pMsg(cEvery.CreateMsg());
  REQUIRE(pMsg != nullptr);
  CMsg* pNext = pMsg->GetValue(16)->GetValue(1);
  REQUIRE(pNext != nullptr);
  CHECK(pNext->GetMsgNum() == 1);
  CHECK(pNext->GetRootNum() == 4);
  CHECK(pNext->GetParentTag() == 1);
  CHECK(pNext->GetParent()->GetParent() == pMsg.get());
}

TEST_CASE("only a message of the class's number is read") {
  LoadDictionary();
  msgs::CEvery cEvery = Full();
  CHECK(cEvery.LoadFromMsg(nullptr) == -12);
  CHECK(cEvery.sLastError == "MSG_Error(-12) : Parameter is NULL {msgnum=0,class=4}");
  CHECK(cEvery.LoadFromMsg(Message("<msg no=\"1\"/>").get()) == -28);
  CHECK(cEvery.sLastError == "MSG_Error(-28) : Invalid input msg of service {msgnum=1,class=4}");
  CHECK(Xml(cEvery) == s_szFull);    // nothing was changed
}

// Classes as an older or newer dictionary would have given them.
template <int NUMBER, int TAG, class MEMBER>
class CStranger : public CMsgBase {
 public:
  enum { MSG_NUM = NUMBER };
  MEMBER member;
  int LoadFromMsg(CMsg* p_pMsg) override { return callorv::detail::LoadTypedMsg(*this, p_pMsg); }
  CMsg* CreateMsg() override { return callorv::detail::CreateTypedMsg(*this); }
  template <class SELF, class VISITOR>
  static void VisitTags(SELF& p_Self, VISITOR& p_Visitor) {
    p_Visitor(TAG, p_Self.member);
    p_Visitor(TAG + 100, p_Self.member);    // the first failure counts
  }
};

TEST_CASE("a class that does not fit the dictionary says why") {
  LoadDictionary();
  CStranger<999, 1, CInt> cNoMessage;
  CHECK(cNoMessage.CreateMsg() == nullptr);
  CHECK(cNoMessage.sLastError == "MSG_Error(-19) : Not defined msg in dictionary {3.msgnum=999}");

  CStranger<4, 77, CInt> cNoTag;
  cNoTag.member.Set(1);
  CHECK(cNoTag.CreateMsg() == nullptr);
  CHECK(cNoTag.sLastError == "MSG_Error(-18) : Not defined tag in dictionary {msgnum=4, tagnum=77}");
  CHECK(cNoTag.LoadFromMsg(Message("<msg no=\"4\"/>").get()) == -18);
  CHECK(cNoTag.sLastError == "MSG_Error(-18) : Not defined tag in dictionary {msgnum=4, tagnum=77}");

  CStranger<4, 1, CInt> cOtherType;
  cOtherType.member.Set(1);
  CHECK(cOtherType.CreateMsg() == nullptr);
  CHECK(cOtherType.sLastError == "MSG_Error(-17) : Invalid tag type {Line:1233, tagnum=1,type=(string/integer)}");
  CHECK(cOtherType.LoadFromMsg(Message("<msg no=\"4\"><t1>x</t1></msg>").get()) == -17);
  CHECK(cOtherType.sLastError == "MSG_Error(-17) : Invalid tag type {Line:740, tagnum=1,type=(string/integer)}");

  CStranger<4, 6, T_SubMsg<CStranger<1, 0, CInt>>> cInside;
  cInside.member.Make().member.Set(1);
  CHECK(cInside.CreateMsg() == nullptr);
  CHECK(cInside.sLastError == "MSG_Error(-17) : Invalid tag type {Line:1233, tagnum=0,type=(string/integer)}");
  CHECK(cInside.LoadFromMsg(Message("<msg no=\"4\"><t6><t0>x</t0></t6></msg>").get()) == -17);

  CStranger<4, 77, std::vector<int>> cNoArray;
  cNoArray.member = {1, 2};
  CHECK(cNoArray.CreateMsg() == nullptr);
  CHECK(cNoArray.sLastError == "MSG_Error(-18) : Not defined tag in dictionary {msgnum=4, tagnum=77}");

  CStranger<4, 16, std::vector<CStranger<1, 0, CInt>>> cOtherRow;
  cOtherRow.member.resize(2);
  cOtherRow.member[0].member.Set(1);
  CHECK(cOtherRow.CreateMsg() == nullptr);
  CHECK(cOtherRow.sLastError == "MSG_Error(-17) : Invalid tag type {Line:1233, tagnum=0,type=(string/integer)}");

  CStranger<4, 16, std::vector<CStranger<999, 0, CInt>>> cNoRow;
  cNoRow.member.resize(1);
  CHECK(cNoRow.CreateMsg() == nullptr);
  CHECK(cNoRow.sLastError == "MSG_Error(-19) : Not defined msg in dictionary {3.msgnum=999}");
}

// What another dictionary's tag 6 of message 4 would be: a message 4 again.
class CForeign : public CMsgBase {
 public:
  enum { MSG_NUM = 4 };
  CStr text;
  T_SubMsg<CForeign> inner;
  int LoadFromMsg(CMsg* p_pMsg) override { return callorv::detail::LoadTypedMsg(*this, p_pMsg); }
  CMsg* CreateMsg() override { return callorv::detail::CreateTypedMsg(*this); }
  template <class SELF, class VISITOR>
  static void VisitTags(SELF& p_Self, VISITOR& p_Visitor) {
    p_Visitor(1, p_Self.text);
    p_Visitor(6, p_Self.inner);
  }
};

TEST_CASE("a sub-message is of the number that its class says") {
  LoadDictionary();
  CForeign cOuter;
  cOuter.inner.Make().text.Set("inner");
  CHECK(Xml(cOuter) == "<msg no=\"4\" ver=\"\"><t6><t1><![CDATA[inner]]></t1></t6></msg>");
}

TEST_CASE("a row whose message was freed is read as an empty one") {
  LoadDictionary();
  const auto pMsg = Message("<msg no=\"4\"><t16><t0>x</t0></t16></msg>");
  std::unique_ptr<CMsg> pRow(new CMsg(msgs::CNode::MSG_NUM, 0, 0, MA_GetMsgDic()));
  pRow->SetValue(0, "y");
  REQUIRE(pMsg->SetValue(16, pRow.get()) == 0);
  pRow.reset();
  msgs::CEvery cEvery;
  REQUIRE(cEvery.LoadFromMsg(pMsg.get()) == 0);
  REQUIRE(cEvery.nodes.size() == 2);
  CHECK(cEvery.nodes[0].label.Get() == "x");
  CHECK_FALSE(cEvery.nodes[1].label.IsSet());
}

// Only the first of the rows.
class CFirst : public CMsgBase {
 public:
  enum { MSG_NUM = 4 };
  T_SubMsg<CStranger<1, 0, CStr>> first;
  int LoadFromMsg(CMsg* p_pMsg) override { return callorv::detail::LoadTypedMsg(*this, p_pMsg); }
  CMsg* CreateMsg() override { return callorv::detail::CreateTypedMsg(*this); }
  template <class SELF, class VISITOR>
  static void VisitTags(SELF& p_Self, VISITOR& p_Visitor) {
    p_Visitor(16, p_Self.first);
  }
};

TEST_CASE("a first row whose message was freed is absent") {
  LoadDictionary();
  CMsg cMsg(4, 0, 0, MA_GetMsgDic());
  std::unique_ptr<CMsg> pRow(new CMsg(msgs::CNode::MSG_NUM, 0, 0, MA_GetMsgDic()));
  pRow->SetValue(0, "y");
  REQUIRE(cMsg.SetValue(16, pRow.get()) == 0);
  pRow.reset();
  CFirst cFirst;
  cFirst.first.Make();
  REQUIRE(cFirst.LoadFromMsg(&cMsg) == 0);
  CHECK_FALSE(cFirst.first.IsSet());
}

TEST_CASE("a row that does not fit its class stops the reading") {
  LoadDictionary();
  CStranger<4, 16, std::vector<CStranger<1, 0, CInt>>> cOtherRow;
  CHECK(cOtherRow.LoadFromMsg(Message("<msg no=\"4\"><t16><t0>x</t0></t16><t16><t0>y</t0></t16></msg>").get()) == -17);
  CHECK(cOtherRow.sLastError == "MSG_Error(-17) : Invalid tag type {Line:740, tagnum=0,type=(string/integer)}");
}

TEST_CASE("odd names are members, too") {
  LoadDictionary();
  msgs::COdd_names cOdd;
  cOdd.class_1.Set("c");
  cOdd.t2nd_price.Set(1);
  cOdd.a_b_3_3.Set(3);
  cOdd.a_b_4.Set(4);
  cOdd.t5.Set(true);
  cOdd.COdd_names_.Set("d");
  cOdd.sLastError_.Set("e");
  cOdd.CInt.Set(8);
  cOdd.x.Set(9);
  cOdd.class_10 = {10};
  cOdd.std = {"s"};
  cOdd.a_b_3_12.Set(12);
  cOdd.linux_ = {true};
  CHECK(Xml(cOdd) ==
        "<msg no=\"5\" ver=\"\"><t1><![CDATA[c]]></t1><t2>1.000000000000000e+00</t2><t3>3</t3><t4>4</t4><t5>true</t5>"
        "<t6>d</t6><t7><![CDATA[e]]></t7><t8>8</t8><t9>9</t9><t10>10</t10><t11><![CDATA[s]]></t11><t12>12</t12>"
        "<t3>3</t3><t16>true</t16></msg>");    // tag 3 stands twice in the dictionary, and so in the message
}

TEST_CASE("a visitor sees every tag with its member") {
  struct T_Visitor {
    std::string sTags;
    void operator()(int p_iTag, const CStr&) { sTags += std::to_string(p_iTag) + "s "; }
    void operator()(int p_iTag, const T_SubMsg<msgs::CNode>&) { sTags += std::to_string(p_iTag) + "m "; }
    void operator()(int p_iTag, const std::vector<msgs::CNode>&) { sTags += std::to_string(p_iTag) + "r "; }
  };
  const msgs::CNode cNode;
  T_Visitor tVisitor;
  msgs::CNode::VisitTags(cNode, tVisitor);
  CHECK(tVisitor.sTags == "0s 1m 2r ");
}
