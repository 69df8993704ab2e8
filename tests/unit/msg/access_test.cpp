// Setters and getters of every type, by number and by name: the same checks, codes and texts in the same order.
#include <climits>
#include <cmath>
#include <limits>

#include "support/test_dic.h"

namespace {

// The tags of message 120.
struct T_Tag {
  int iTag;
  const char *szName, *szType;
  bool bMulti;
};
const T_Tag s_atTag[] = {
    {1, "text", "string", false},   {7, "number", "integer", false},  {3, "price", "double", false},
    {4, "flag", "bool", false},     {5, "day", "date", false},        {6, "row", "submsg", false},
    {11, "texts", "string", true},  {17, "numbers", "integer", true}, {13, "prices", "double", true},
    {14, "flags", "bool", true},    {15, "days", "date", true},       {16, "rows", "submsg", true}};

const T_Tag& Tag(int p_iTag) {
  for (const T_Tag& tTag : s_atTag) {
    if (tTag.iTag == p_iTag) return tTag;
  }
  throw p_iTag;
}

// Stores a value of the tag's own type: the first or, on a multi tag, the next.
void Fill(CTestMsg& p_cMsg, int p_iTag, bool p_bFirst = true) {
  const std::string sType = Tag(p_iTag).szType;
  int iRet = -1;
  if (sType == "string") iRet = p_cMsg->SetValue(p_iTag, p_bFirst ? "abc" : "def");
  if (sType == "integer") iRet = p_cMsg->SetValue(p_iTag, p_bFirst ? 5 : -6);
  if (sType == "double") iRet = p_cMsg->SetValue(p_iTag, p_bFirst ? 1.5 : 2.5);
  if (sType == "bool") iRet = p_cMsg->SetValue(p_iTag, p_bFirst);
  if (sType == "date") iRet = p_cMsg->SetValue(p_iTag, CDate(p_bFirst ? "20240131" : "20240229"));
  if (sType == "submsg") {
    CMsg* pOld = Tag(p_iTag).bMulti || p_cMsg->IsEmpty() ? nullptr : p_cMsg->GetValue(p_iTag);
    iRet = p_cMsg->SetValue(p_iTag, NewRow(p_cMsg.Dic(), p_bFirst ? "one" : "two"));
    delete pOld;    // it is replaced
  }
  REQUIRE(iRet == 0);
}

// What a getter gave, as text.
std::string Say(const CString& p_s) { return p_s.ToStr(); }
std::string Say(int p_i) { return std::to_string(p_i); }
std::string Say(double p_d) { return CFormat("%g", p_d).ToStr(); }
std::string Say(bool p_b) { return p_b ? "true" : "false"; }
std::string Say(const CDate& p_c) { return p_c.IsSet() ? p_c.ToStr() : "unset"; }
std::string Say(CMsg* p_p) {
  CString sText("null");
  if (p_p != nullptr) p_p->GetValue(1, &sText);
  return sText.ToStr();
}
template <class T>
std::string Say(const T_Nullable<T>& p_c) {
  return p_c.IsSet() ? Say(p_c.Get()) : "unset";
}
template <class ARRAY>
std::string SayAll(ARRAY& p_a) {
  std::string sText;
  for (int i = 0; i < p_a.GetSize(); ++i) sText += Say(p_a.GetAt(i)) + ";";
  return sText;
}

// ---- setters

// Stores one value of the type; KEY is a tag number or a name, writable or not.
struct T_Setter {
  const char* szWhat;
  int iSingle, iMulti;    // tags of the type
  int iOther;             // a tag of another type, and what is said about it
  const char* szMismatch;
  int (*fnByTag)(CMsg&, int);
  int (*fnByName)(CMsg&, char*);
  int (*fnByConstName)(CMsg&, const char*);
};

template <class F>
T_Setter Setter(const char* p_szWhat, int p_iSingle, int p_iOther, const char* p_szMismatch, F p_fn) {
  return {p_szWhat, p_iSingle, p_iSingle + 10, p_iOther, p_szMismatch, p_fn, p_fn, p_fn};
}

// A sub-message that stays ours when it is refused.
template <class KEY>
int SetSub(CMsg& p_cMsg, KEY p_Key) {
  static CTestDic s_cDic;
  std::unique_ptr<CMsg> pSub(NewRow(s_cDic, "one"));
  const int iRet = p_cMsg.SetValue(p_Key, pSub.get());
  if (iRet == 0) (void)pSub.release();
  return iRet;
}

const T_Setter s_atSetter[] = {
    Setter("const char*", 1, 7, "MSG_Error(-17) : Invalid tag type {Line:1178, tagnum=7,type=(integer/string)}",
           [](CMsg& m, auto k) { return m.SetValue(k, "abc"); }),
    Setter("int", 7, 3, "MSG_Error(-17) : Invalid tag type {Line:1233, tagnum=3,type=(double/integer)}",
           [](CMsg& m, auto k) { return m.SetValue(k, 5); }),
    Setter("double", 3, 7, "MSG_Error(-17) : Invalid tag type {Line:1280, tagnum=7,type=(integer/double)}",
           [](CMsg& m, auto k) { return m.SetValue(k, 1.5); }),
    Setter("bool", 4, 16, "MSG_Error(-17) : Invalid tag type {Line:1327, tagnum=16,type=(submsg/bool)}",
           [](CMsg& m, auto k) { return m.SetValue(k, true); }),
    Setter("CDate", 5, 11, "MSG_Error(-17) : Invalid tag type {Line:1378, tagnum=11,type=(string/date)}",
           [](CMsg& m, auto k) { return m.SetValue(k, CDate("20240131")); }),
    Setter("CInt", 7, 4, "MSG_Error(-17) : Invalid tag type {Line:2114, tagnum=4,type=(bool/integer)}",
           [](CMsg& m, auto k) { return m.SetValue(k, CInt(5)); }),
    Setter("CDbl", 3, 5, "MSG_Error(-17) : Invalid tag type {Line:2165, tagnum=5,type=(date/double)}",
           [](CMsg& m, auto k) { return m.SetValue(k, CDbl(1.5)); }),
    Setter("CBool", 4, 7, "MSG_Error(-17) : Invalid tag type {Line:2216, tagnum=7,type=(integer/bool)}",
           [](CMsg& m, auto k) { return m.SetValue(k, CBool(true)); }),
    Setter("CMsg*", 6, 7, "MSG_Error(-17) : Invalid tag type {Line:1441, tagnum=7,type=(integer/submsg)}",
           [](CMsg& m, auto k) { return SetSub(m, k); }),
};

// ---- getters

template <class T, class KEY>
int GetScalar(CMsg& p_cMsg, KEY p_Key, std::string& p_sOut) {
  T Value{};
  const int iRet = p_cMsg.GetValue(p_Key, &Value);
  p_sOut = Say(Value);
  return iRet;
}
template <class T, class KEY>
int GetWhole(CMsg& p_cMsg, KEY p_Key, std::string& p_sOut) {
  T aValue;
  const int iRet = p_cMsg.GetValue(p_Key, &aValue);
  p_sOut = SayAll(aValue);
  return iRet;
}
struct T_Rows : CMsgArray {    // like the other arrays made without an argument
  T_Rows() : CMsgArray(false) {}
};
template <class KEY>
int GetRows(CMsg& p_cMsg, KEY p_Key, std::string& p_sOut) {
  T_Rows aValue;
  const int iRet = p_cMsg.GetValue(p_Key, static_cast<CMsgArray*>(&aValue));
  p_sOut = SayAll(aValue);
  return iRet;
}
template <class T, class KEY>
int GetSecond(CMsg& p_cMsg, KEY p_Key, std::string& p_sOut) {
  T Value{};
  const int iRet = p_cMsg.GetValueAt(p_Key, 1, &Value);
  p_sOut = Say(Value);
  return iRet;
}
template <class T, class KEY>
int GetToNull(CMsg& p_cMsg, KEY p_Key) {
  return p_cMsg.GetValue(p_Key, static_cast<T*>(nullptr));
}
template <class T, class KEY>
int GetSecondToNull(CMsg& p_cMsg, KEY p_Key) {
  return p_cMsg.GetValueAt(p_Key, 1, static_cast<T*>(nullptr));
}

struct T_Getter {
  const char* szWhat;
  int iSingle, iMulti;                       // tags of the type
  // What comes out: on failure, of a single tag, of a multi tag with two values.
  const char *szNone, *szSingle, *szMulti;
  int iOther;                                // a tag of another type, and what is said about it
  const char* szMismatch;
  int (*fnByTag)(CMsg&, int, std::string&);
  int (*fnByName)(CMsg&, char*, std::string&);
  int (*fnByConstName)(CMsg&, const char*, std::string&);
  int (*fnToNull)(CMsg&, int);
  int (*fnToNullByName)(CMsg&, char*);
};

template <class T>
T_Getter Scalar(const char* p_szWhat, int p_iSingle, const char* p_szNone, const char* p_szValue, int p_iOther,
                const char* p_szMismatch) {
  return {p_szWhat,  p_iSingle, p_iSingle + 10, p_szNone,          p_szValue,           p_szValue,
          p_iOther,  p_szMismatch, GetScalar<T, int>, GetScalar<T, char*>, GetScalar<T, const char*>,
          GetToNull<T, int>, GetToNull<T, char*>};
}
template <class T>
T_Getter Whole(const char* p_szWhat, int p_iSingle, const char* p_szSingle, const char* p_szMulti, int p_iOther,
               const char* p_szMismatch) {
  return {p_szWhat, p_iSingle,    p_iSingle + 10,   "",                 p_szSingle,               p_szMulti,
          p_iOther, p_szMismatch, GetWhole<T, int>, GetWhole<T, char*>, GetWhole<T, const char*>,
          GetToNull<T, int>, GetToNull<T, char*>};
}
template <class T>
T_Getter Second(const char* p_szWhat, int p_iSingle, const char* p_szNone, const char* p_szSingle,
                const char* p_szMulti, int p_iOther, const char* p_szMismatch) {
  return {p_szWhat, p_iSingle,    p_iSingle + 10,    p_szNone,            p_szSingle,                p_szMulti,
          p_iOther, p_szMismatch, GetSecond<T, int>, GetSecond<T, char*>, GetSecond<T, const char*>,
          GetSecondToNull<T, int>, GetSecondToNull<T, char*>};
}

const T_Getter s_atGetter[] = {
    Scalar<CString>("CString*", 1, "", "abc", 7,
                    "MSG_Error(-17) : Invalid tag type {Line:699, tagnum=7,type=(integer/string)}"),
    Scalar<int>("int*", 7, "0", "5", 1,
                "MSG_Error(-17) : Invalid tag type {Line:740, tagnum=1,type=(string/integer)}"),
    Scalar<double>("double*", 3, "0", "1.5", 7,
                   "MSG_Error(-17) : Invalid tag type {Line:777, tagnum=7,type=(integer/double)}"),
    Scalar<bool>("bool*", 4, "false", "true", 3,
                 "MSG_Error(-17) : Invalid tag type {Line:814, tagnum=3,type=(double/bool)}"),
    Scalar<CDate>("CDate*", 5, "unset", "20240131", 4,
                  "MSG_Error(-17) : Invalid tag type {Line:850, tagnum=4,type=(bool/date)}"),
    Scalar<CInt>("CInt*", 7, "unset", "5", 5,
                 "MSG_Error(-17) : Invalid tag type {Line:1987, tagnum=5,type=(date/integer)}"),
    Scalar<CDbl>("CDbl*", 3, "unset", "1.5", 6,
                 "MSG_Error(-17) : Invalid tag type {Line:2024, tagnum=6,type=(submsg/double)}"),
    Scalar<CBool>("CBool*", 4, "unset", "true", 7,
                  "MSG_Error(-17) : Invalid tag type {Line:2061, tagnum=7,type=(integer/bool)}"),
    Scalar<CMsg*>("CMsg**", 6, "null", "one", 7,
                  "MSG_Error(-17) : Invalid tag type {Line:891, tagnum=7,type=(integer/submsg)}"),

    Whole<CStrArray>("CStrArray*", 1, "abc;", "abc;def;", 17,
                     "MSG_Error(-17) : Invalid tag type {Line:943, tagnum=17,type=(integer/string)}"),
    Whole<CIntArray>("CIntArray*", 7, "5;", "5;-6;", 11,
                     "MSG_Error(-17) : Invalid tag type {Line:983, tagnum=11,type=(string/integer)}"),
    Whole<CDblArray>("CDblArray*", 3, "1.5;", "1.5;2.5;", 17,
                     "MSG_Error(-17) : Invalid tag type {Line:1023, tagnum=17,type=(integer/double)}"),
    Whole<CBoolArray>("CBoolArray*", 4, "true;", "true;false;", 13,
                      "MSG_Error(-17) : Invalid tag type {Line:1063, tagnum=13,type=(double/bool)}"),
    Whole<CDateArray>("CDateArray*", 5, "20240131;", "20240131;20240229;", 14,
                      "MSG_Error(-17) : Invalid tag type {Line:1103, tagnum=14,type=(bool/date)}"),
    {"CMsgArray*", 6, 16, "", "one;", "one;two;", 15,
     "MSG_Error(-17) : Invalid tag type {Line:1144, tagnum=15,type=(date/submsg)}", GetRows<int>, GetRows<char*>,
     GetRows<const char*>, GetToNull<CMsgArray, int>, GetToNull<CMsgArray, char*>},

    Second<CString>("CString* at", 1, "", "abc", "def", 17,
                    "MSG_Error(-17) : Invalid tag type {Line:2355, tagnum=17,type=(integer/string)}"),
    Second<int>("int* at", 7, "0", "5", "-6", 11,
                "MSG_Error(-17) : Invalid tag type {Line:2393, tagnum=11,type=(string/integer)}"),
    Second<double>("double* at", 3, "0", "1.5", "2.5", 17,
                   "MSG_Error(-17) : Invalid tag type {Line:2431, tagnum=17,type=(integer/double)}"),
    Second<bool>("bool* at", 4, "false", "true", "false", 13,
                 "MSG_Error(-17) : Invalid tag type {Line:2469, tagnum=13,type=(double/bool)}"),
    Second<CDate>("CDate* at", 5, "unset", "20240131", "20240229", 16,
                  "MSG_Error(-17) : Invalid tag type {Line:2506, tagnum=16,type=(submsg/date)}"),
    Second<CMsg*>("CMsg** at", 6, "null", "one", "two", 14,
                  "MSG_Error(-17) : Invalid tag type {Line:2544, tagnum=14,type=(bool/submsg)}"),
};

// A name in a text of its own, as old callers pass it.
class CName {
 public:
  explicit CName(const char* p_sz) : m_s(p_sz) {}
  operator char*() { return &m_s[0]; }

 private:
  std::string m_s;
};

const char* s_szNoDefByTag = "MSG_Error(-19) : Not defined msg in dictionary {msgnum=0, tagnum=7}";
const char* s_szNoDefByName = "MSG_Error(-19) : Not defined msg in dictionary {msgnum=0}";

}    // namespace

TEST_CASE("a setter stores, by number and by name") {
  for (const T_Setter& tSetter : s_atSetter) {
    CAPTURE(tSetter.szWhat);
    for (int iTag : {tSetter.iSingle, tSetter.iMulti}) {
      CAPTURE(iTag);
      CTestMsg cByTag(120), cByName(120), cByConstName(120);
      CHECK(cByTag->IsEmpty());
      CHECK(tSetter.fnByTag(*cByTag, iTag) == 0);
      CHECK_FALSE(cByTag->IsEmpty());
      CHECK(cByTag->GetLastError() == std::string());
      CHECK(cByTag->GetArrSize(iTag) == 1);
      CHECK(tSetter.fnByName(*cByName, CName(Tag(iTag).szName)) == 0);
      CHECK(tSetter.fnByConstName(*cByConstName, Tag(iTag).szName) == 0);
      CHECK(ToXml(*cByName) == ToXml(*cByTag));
      CHECK(ToXml(*cByConstName) == ToXml(*cByTag));
    }
  }
}

TEST_CASE("a setter refuses a message without a definition") {
  for (const T_Setter& tSetter : s_atSetter) {
    CAPTURE(tSetter.szWhat);
    CTestMsg cMsg(0);
    CHECK(tSetter.fnByTag(*cMsg, 7) == -19);
    CHECK(cMsg->GetLastError() == std::string(s_szNoDefByTag));
    CHECK(tSetter.fnByTag(*cMsg, -1) == -19);
    CHECK(cMsg->GetLastError() == std::string("MSG_Error(-19) : Not defined msg in dictionary {msgnum=0, tagnum=-1}"));
    CHECK(tSetter.fnByName(*cMsg, CName("number")) == -19);
    CHECK(cMsg->GetLastError() == std::string(s_szNoDefByName));
    CHECK(tSetter.fnByConstName(*cMsg, "nonesuch") == -19);
    CHECK(cMsg->GetLastError() == std::string(s_szNoDefByName));
    CHECK(cMsg->IsEmpty());
  }
}

TEST_CASE("a setter refuses a negative, an undefined and an unknown tag") {
  struct T_Row {
    int iTag;
    const char* szText;
  };
  static const T_Row s_atRow[] = {
      {-1, "MSG_Error(-18) : Not defined tag in dictionary {msgnum=120, tagnum=-1}"},
      {INT_MIN, "MSG_Error(-18) : Not defined tag in dictionary {msgnum=120, tagnum=-2147483648}"},
      {0, "MSG_Error(-18) : Not defined tag in dictionary {msgnum=120, tagnum=0}"},
      {2, "MSG_Error(-18) : Not defined tag in dictionary {msgnum=120, tagnum=2}"},
      {INT_MAX, "MSG_Error(-18) : Not defined tag in dictionary {msgnum=120, tagnum=2147483647}"}};
  for (const T_Setter& tSetter : s_atSetter) {
    CAPTURE(tSetter.szWhat);
    CTestMsg cMsg(120);
    for (const T_Row& tRow : s_atRow) {
      CHECK(tSetter.fnByTag(*cMsg, tRow.iTag) == -18);
      CHECK(cMsg->GetLastError() == std::string(tRow.szText));
    }
    for (const char* szName : {"nonesuch", "", "Number"}) {
      CAPTURE(szName);
      CMsg cOther(120, 0, 0, &cMsg.Dic());
      CHECK(tSetter.fnByName(cOther, CName(szName)) == -18);
      CHECK(cOther.GetLastError() == std::string(s_atRow[0].szText));
      CHECK(tSetter.fnByConstName(cOther, szName) == -18);
    }
    CHECK(tSetter.fnByName(*cMsg, nullptr) == -18);
    CHECK(cMsg->GetLastError() == std::string(s_atRow[0].szText));
    CHECK(cMsg->IsEmpty());
  }
}

TEST_CASE("a setter refuses a tag of another type, and says so with its own number") {
  for (const T_Setter& tSetter : s_atSetter) {
    CAPTURE(tSetter.szWhat);
    CTestMsg cMsg(120);
    CHECK(tSetter.fnByTag(*cMsg, tSetter.iOther) == -17);
    CHECK(cMsg->GetLastError() == std::string(tSetter.szMismatch));
    CHECK(tSetter.fnByName(*cMsg, CName(Tag(tSetter.iOther).szName)) == -17);
    CHECK(cMsg->GetLastError() == std::string(tSetter.szMismatch));
    CHECK(cMsg->IsEmpty());
    CHECK(cMsg->GetArrSize(tSetter.iOther) == -1);
  }
}

TEST_CASE("no setter takes a tag of any other type") {
  for (const T_Setter& tSetter : s_atSetter) {
    CAPTURE(tSetter.szWhat);
    for (const T_Tag& tTag : s_atTag) {
      CTestMsg cMsg(120);
      const bool bSame = std::string(tTag.szType) == Tag(tSetter.iSingle).szType;
      CHECK(tSetter.fnByTag(*cMsg, tTag.iTag) == (bSame ? 0 : -17));
      Fill(cMsg, tTag.iTag);    // and a value that is there does not help
      const std::string sBefore = ToXml(*cMsg);
      if (!bSame) CHECK(tSetter.fnByTag(*cMsg, tTag.iTag) == -17);
      if (!bSame) CHECK(ToXml(*cMsg) == sBefore);
    }
  }
}

TEST_CASE("a tag of no known type cannot be set") {
  CMsgDic cDic;
  cDic.SetMsgInfo(5, "m", "", "");
  cDic.GetMsgInfo(5)->SetTagInfo(7, "odd", TAG_UNKNOWN, 0, false);
  cDic.GetMsgInfo(5)->SetTagInfo(8, "odder", static_cast<E_TagType>(9), 0, true);
  CMsg cMsg(5, 0, 0, &cDic);
  CHECK(cMsg.SetValue(7, 1) == -17);
  CHECK(cMsg.GetLastError() ==
        std::string("MSG_Error(-17) : Invalid tag type {Line:1233, tagnum=7,type=(Unknown/integer)}"));
  CHECK(cMsg.SetValue(8, "x") == -17);
  CHECK(cMsg.GetLastError() ==
        std::string("MSG_Error(-17) : Invalid tag type {Line:1178, tagnum=8,type=(Unknown(9)/string)}"));
}

TEST_CASE("a second value replaces in a single tag and is added in a multi tag") {
  for (const T_Tag& tTag : s_atTag) {
    CAPTURE(tTag.szName);
    CTestMsg cMsg(120);
    Fill(cMsg, tTag.iTag, true);
    Fill(cMsg, tTag.iTag, false);
    CHECK(cMsg->GetArrSize(tTag.iTag) == (tTag.bMulti ? 2 : 1));
  }
  CTestMsg cMsg(120);
  int iValue = 0;
  CHECK(cMsg->SetValue(7, 1) == 0);
  CHECK(cMsg->SetValue(7, 2) == 0);
  CHECK(cMsg->GetValue(7, &iValue) == 0);
  CHECK(iValue == 2);
  CHECK(cMsg->SetValue(17, 1) == 0);
  CHECK(cMsg->SetValue(17, 2) == 0);
  CHECK(cMsg->GetValue(17, &iValue) == 0);
  CHECK(iValue == 1);
  CString sText;
  CHECK(cMsg->SetValue(1, "a text that is too long to be stored in place") == 0);
  CHECK(cMsg->SetValue(1, "short") == 0);
  CHECK(cMsg->GetValue(1, &sText) == 0);
  CHECK(sText == "short");
  CDate cDay;
  CHECK(cMsg->SetValue(5, CDate("20240131")) == 0);
  CHECK(cMsg->SetValue(5, CDate("2025")) == 0);
  CHECK(cMsg->GetValue(5, &cDay) == 0);
  CHECK(cDay.ToStr() == std::string("2025"));
}

TEST_CASE("values of one tag keep the order in which they came") {
  CTestMsg cMsg(120);
  for (int i = 0; i < 1000; ++i) CHECK(cMsg->SetValue(17, i * i) == 0);
  CIntArray aiAll;
  CHECK(cMsg->GetValue(17, &aiAll) == 0);
  REQUIRE(aiAll.GetSize() == 1000);
  for (int i = 0; i < 1000; ++i) CHECK(aiAll.GetAt(i) == i * i);
  CHECK(cMsg->GetArrSize(17) == 1000);
}

TEST_CASE("extreme values come back as they went in") {
  CTestMsg cMsg(120);
  for (int i : {0, -1, INT_MAX, INT_MIN}) {
    int iOut = 1;
    CHECK(cMsg->SetValue(7, i) == 0);
    CHECK(cMsg->GetValue(7, &iOut) == 0);
    CHECK(iOut == i);
  }
  using CLimits = std::numeric_limits<double>;
  for (double d : {0.0, -0.0, CLimits::max(), CLimits::lowest(), CLimits::min(), CLimits::denorm_min(),
                   CLimits::infinity(), 0.1}) {
    double dOut = 1;
    CHECK(cMsg->SetValue(3, d) == 0);
    CHECK(cMsg->GetValue(3, &dOut) == 0);
    CHECK(dOut == d);
    CHECK(std::signbit(dOut) == std::signbit(d));
  }
  double dOut = 1;
  CHECK(cMsg->SetValue(3, std::nan("")) == 0);
  CHECK(cMsg->GetValue(3, &dOut) == 0);
  CHECK(std::isnan(dOut));
}

TEST_CASE("an empty text is ignored before anything is checked") {
  for (const char* szValue : {static_cast<const char*>(nullptr), ""}) {
    CTestMsg cMsg(120), cNoDef(0);
    CHECK(cMsg->SetValue(1, szValue) == 0);
    CHECK(cMsg->SetValue(11, szValue) == 0);
    CHECK(cMsg->SetValue(7, szValue) == 0);
    CHECK(cMsg->SetValue(99, szValue) == 0);
    CHECK(cMsg->SetValue(-1, szValue) == 0);
    CHECK(cNoDef->SetValue(1, szValue) == 0);
    CHECK(cMsg->GetLastError() == std::string());
    CHECK(cMsg->IsEmpty());
    CString sText("kept");
    CHECK(cMsg->GetValue(1, &sText) == -1);
    CHECK(cMsg->GetLastError() == std::string("MSG_Error(-1) : No Data found {tagnum=1}"));
    CHECK(sText == "kept");
    cMsg->SetValue(1, "abc");
    CHECK(cMsg->SetValue(1, szValue) == 0);
    CHECK(cMsg->GetValue(1, &sText) == 0);
    CHECK(sText == "abc");
    // By name, the definition comes first.
    CHECK(cMsg->SetValue(CName("text"), szValue) == 0);
    CHECK(cMsg->SetValue(CName("nonesuch"), szValue) == 0);
    CHECK(cNoDef->SetValue(CName("text"), szValue) == -19);
    CHECK(cNoDef->GetLastError() == std::string(s_szNoDefByName));
  }
}

TEST_CASE_TEMPLATE("an unset value is ignored before anything is checked", T, CInt, CDbl, CBool, CDate) {
  const T cUnset;
  CTestMsg cMsg(120), cNoDef(0);
  for (int iTag : {7, 3, 4, 5, 17, 13, 14, 15, 6, 99, -1}) {
    CHECK(cMsg->SetValue(iTag, cUnset) == 0);
    CHECK(cMsg->GetArrSize(iTag) < 0);
  }
  CHECK(cNoDef->SetValue(7, cUnset) == 0);
  CHECK(cNoDef->GetLastError() == std::string());
  CHECK(cMsg->IsEmpty());
  // By name, the definition comes before the set flag.
  CHECK(cMsg->SetValue(CName("number"), cUnset) == 0);
  CHECK(cMsg->SetValue(CName("nonesuch"), cUnset) == 0);
  CHECK(cMsg->IsEmpty());
  CHECK(cNoDef->SetValue(CName("number"), cUnset) == -19);
  CHECK(cNoDef->GetLastError() == std::string(s_szNoDefByName));
}

TEST_CASE("a getter gives what was stored, by number and by name") {
  for (const T_Getter& tGetter : s_atGetter) {
    CAPTURE(tGetter.szWhat);
    for (int iTag : {tGetter.iSingle, tGetter.iMulti}) {
      CAPTURE(iTag);
      CTestMsg cMsg(120);
      Fill(cMsg, iTag, true);
      if (iTag == tGetter.iMulti) Fill(cMsg, iTag, false);
      const std::string sWanted = iTag == tGetter.iMulti ? tGetter.szMulti : tGetter.szSingle;
      std::string sOut;
      CHECK(tGetter.fnByTag(*cMsg, iTag, sOut) == 0);
      CHECK(sOut == sWanted);
      CHECK(tGetter.fnByName(*cMsg, CName(Tag(iTag).szName), sOut) == 0);
      CHECK(sOut == sWanted);
      CHECK(tGetter.fnByConstName(*cMsg, Tag(iTag).szName, sOut) == 0);
      CHECK(sOut == sWanted);
      CHECK(cMsg->GetLastError() == std::string());
    }
  }
}

TEST_CASE("a getter without an output says so before anything else") {
  for (const T_Getter& tGetter : s_atGetter) {
    CAPTURE(tGetter.szWhat);
    CTestMsg cMsg(120), cNoDef(0);
    for (int iTag : {tGetter.iSingle, tGetter.iMulti, tGetter.iOther, 99, -1}) {
      CMsg cFresh(120, 0, 0, &cMsg.Dic());
      CHECK(tGetter.fnToNull(cFresh, iTag) == -12);
      CHECK(cFresh.GetLastError() == std::string("MSG_Error(-12) : Parameter is NULL {}"));
    }
    CHECK(tGetter.fnToNull(*cNoDef, 7) == -12);
    CHECK(cNoDef->GetLastError() == std::string("MSG_Error(-12) : Parameter is NULL {}"));
    CHECK(tGetter.fnToNullByName(*cMsg, CName(Tag(tGetter.iSingle).szName)) == -12);
    CHECK(cMsg->GetLastError() == std::string("MSG_Error(-12) : Parameter is NULL {}"));
    CHECK(tGetter.fnToNullByName(*cNoDef, CName("number")) == -19);    // by name, the definition comes first
    CHECK(cNoDef->GetLastError() == std::string(s_szNoDefByName));
  }
}

TEST_CASE("a getter refuses a message without a definition") {
  for (const T_Getter& tGetter : s_atGetter) {
    CAPTURE(tGetter.szWhat);
    CTestMsg cMsg(0);
    std::string sOut;
    CHECK(tGetter.fnByTag(*cMsg, 7, sOut) == -19);
    CHECK(cMsg->GetLastError() == std::string(s_szNoDefByTag));
    CHECK(sOut == tGetter.szNone);
    CHECK(tGetter.fnByTag(*cMsg, -1, sOut) == -19);    // before the tag is looked at
    CHECK(cMsg->GetLastError() == std::string("MSG_Error(-19) : Not defined msg in dictionary {msgnum=0, tagnum=-1}"));
    CHECK(tGetter.fnByName(*cMsg, CName("number"), sOut) == -19);
    CHECK(cMsg->GetLastError() == std::string(s_szNoDefByName));
    CHECK(tGetter.fnByConstName(*cMsg, "number", sOut) == -19);
    CHECK(cMsg->GetLastError() == std::string(s_szNoDefByName));
  }
}

TEST_CASE("a getter refuses a negative, an undefined and an unknown tag") {
  for (const T_Getter& tGetter : s_atGetter) {
    CAPTURE(tGetter.szWhat);
    CTestMsg cMsg(120);
    std::string sOut;
    CHECK(tGetter.fnByTag(*cMsg, -1, sOut) == -18);
    CHECK(cMsg->GetLastError() ==
          std::string("MSG_Error(-18) : Not defined tag in dictionary {msgnum=120, tagnum=-1}"));
    CHECK(sOut == tGetter.szNone);
    CHECK(tGetter.fnByTag(*cMsg, 2, sOut) == -18);
    CHECK(cMsg->GetLastError() == std::string("MSG_Error(-18) : Not defined tag in dictionary {msgnum=120, tagnum=2}"));
    CHECK(sOut == tGetter.szNone);
    CHECK(tGetter.fnByName(*cMsg, CName("nonesuch"), sOut) == -18);
    CHECK(cMsg->GetLastError() ==
          std::string("MSG_Error(-18) : Not defined tag in dictionary {msgnum=120, tagnum=-1}"));
    CHECK(tGetter.fnByName(*cMsg, nullptr, sOut) == -18);
    CHECK(tGetter.fnByConstName(*cMsg, "nonesuch", sOut) == -18);
  }
}

TEST_CASE("a getter finds no data in a tag without a value, whatever its type") {
  for (const T_Getter& tGetter : s_atGetter) {
    CAPTURE(tGetter.szWhat);
    CTestMsg cMsg(120);
    std::string sOut;
    CHECK(tGetter.fnByTag(*cMsg, 7, sOut) == -1);    // no value, no type to compare
    CHECK(cMsg->GetLastError() == std::string("MSG_Error(-1) : No Data found {tagnum=7}"));
    CHECK(tGetter.fnByTag(*cMsg, 11, sOut) == -1);
    CHECK(cMsg->GetLastError() == std::string("MSG_Error(-1) : No Data found {tagnum=11}"));
    CHECK(sOut == tGetter.szNone);
    CHECK(tGetter.fnByName(*cMsg, CName("day"), sOut) == -1);
    CHECK(cMsg->GetLastError() == std::string("MSG_Error(-1) : No Data found {tagnum=5}"));
  }
}

TEST_CASE("a getter refuses a value of another type, and says so with its own number") {
  for (const T_Getter& tGetter : s_atGetter) {
    CAPTURE(tGetter.szWhat);
    CTestMsg cMsg(120);
    Fill(cMsg, tGetter.iOther);
    std::string sOut;
    CHECK(tGetter.fnByTag(*cMsg, tGetter.iOther, sOut) == -17);
    CHECK(cMsg->GetLastError() == std::string(tGetter.szMismatch));
    CHECK(sOut == tGetter.szNone);
    CHECK(tGetter.fnByName(*cMsg, CName(Tag(tGetter.iOther).szName), sOut) == -17);
    CHECK(cMsg->GetLastError() == std::string(tGetter.szMismatch));
  }
}

TEST_CASE("no getter takes a value of any other type") {
  for (const T_Getter& tGetter : s_atGetter) {
    CAPTURE(tGetter.szWhat);
    for (const T_Tag& tTag : s_atTag) {
      CAPTURE(tTag.szName);
      CTestMsg cMsg(120);
      Fill(cMsg, tTag.iTag, true);
      if (tTag.bMulti) Fill(cMsg, tTag.iTag, false);
      const bool bSame = std::string(tTag.szType) == Tag(tGetter.iSingle).szType;
      std::string sOut;
      CHECK(tGetter.fnByTag(*cMsg, tTag.iTag, sOut) == (bSame ? 0 : -17));
      if (!bSame) CHECK(sOut == tGetter.szNone);
    }
  }
}

TEST_CASE("numbers, flags and nullable values are cleared by a failure, texts and dates are not") {
  CTestMsg cMsg(120);
  int iValue = 9;
  double dValue = 9;
  bool bValue = true;
  CInt cInt(9);
  CDbl cDbl(9);
  CBool cBool(true);
  CMsg* pSub = &*cMsg;
  CString sText("kept");
  CDate cDay("20240131");
  CHECK(cMsg->GetValue(99, &iValue) == -18);
  CHECK(cMsg->GetValue(99, &dValue) == -18);
  CHECK(cMsg->GetValue(99, &bValue) == -18);
  CHECK(cMsg->GetValue(99, &cInt) == -18);
  CHECK(cMsg->GetValue(99, &cDbl) == -18);
  CHECK(cMsg->GetValue(99, &cBool) == -18);
  CHECK(cMsg->GetValue(99, &pSub) == -18);
  CHECK(cMsg->GetValue(99, &sText) == -18);
  CHECK(cMsg->GetValue(99, &cDay) == -18);
  CHECK(iValue == 0);
  CHECK(dValue == 0);
  CHECK_FALSE(bValue);
  CHECK_FALSE(cInt.m_bSet);
  CHECK(cInt.m_Value == 0);
  CHECK_FALSE(cDbl.m_bSet);
  CHECK(cDbl.m_Value == 0);
  CHECK_FALSE(cBool.m_bSet);
  CHECK_FALSE(cBool.m_Value);
  CHECK(pSub == nullptr);
  CHECK(sText == "kept");
  CHECK(cDay.ToStr() == std::string("20240131"));
  CHECK(cDay.m_bSet);

  iValue = 9;
  dValue = 9;
  bValue = true;
  pSub = &*cMsg;
  CHECK(cMsg->GetValueAt(99, 0, &iValue) == -18);
  CHECK(cMsg->GetValueAt(99, 0, &dValue) == -18);
  CHECK(cMsg->GetValueAt(99, 0, &bValue) == -18);
  CHECK(cMsg->GetValueAt(99, 0, &pSub) == -18);
  CHECK(cMsg->GetValueAt(99, 0, &sText) == -18);
  CHECK(cMsg->GetValueAt(99, 0, &cDay) == -18);
  CHECK(iValue == 0);
  CHECK(dValue == 0);
  CHECK_FALSE(bValue);
  CHECK(pSub == nullptr);
  CHECK(sText == "kept");
  CHECK(cDay.m_bSet);
}

TEST_CASE("a date comes out with its set flag") {
  CTestMsg cMsg(120);
  CDate cHalf;
  cHalf.m_bSet = true;    // set, though it has no text
  CHECK(cMsg->SetValue(5, cHalf) == 0);
  CDate cOut("20240131");
  CHECK(cMsg->GetValue(5, &cOut) == 0);
  CHECK(cOut.ToStr() == std::string());
  CHECK(cOut.m_bSet);

  CHECK(cMsg->SetValue(15, cHalf) == 0);
  cOut = CDate();
  CHECK(cMsg->GetValue(15, &cOut) == 0);
  CHECK(cOut.m_bSet);
  cOut = CDate();
  CHECK(cMsg->GetValueAt(15, 0, &cOut) == 0);
  CHECK(cOut.m_bSet);
  CDateArray acDay;
  CHECK(cMsg->GetValue(15, &acDay) == 0);
  CHECK(acDay[0].m_bSet);
}

TEST_CASE("arrays are emptied even when nothing comes") {
  CTestMsg cMsg(120);
  CStrArray asText;
  CIntArray aiNumber;
  CDblArray adPrice;
  CBoolArray abFlag;
  CDateArray acDay;
  asText.Add("x");
  aiNumber.Add(1);
  adPrice.Add(1);
  abFlag.Add(true);
  acDay.Add(CDate("20240131"));
  CMsgArray apRow(true);
  apRow.Add(NewRow(cMsg.Dic(), "freed by GetValue"));
  CHECK(cMsg->GetValue(99, &asText) == -18);
  CHECK(cMsg->GetValue(99, &aiNumber) == -18);
  CHECK(cMsg->GetValue(99, &adPrice) == -18);
  CHECK(cMsg->GetValue(99, &abFlag) == -18);
  CHECK(cMsg->GetValue(99, &acDay) == -18);
  CHECK(cMsg->GetValue(99, &apRow) == -18);
  CHECK(asText.GetSize() == 0);
  CHECK(aiNumber.GetSize() == 0);
  CHECK(adPrice.GetSize() == 0);
  CHECK(abFlag.GetSize() == 0);
  CHECK(acDay.GetSize() == 0);
  CHECK(apRow.GetSize() == 0);
  CHECK_FALSE(apRow.GetAdoptFlag());
}

TEST_CASE("an array that already holds values receives the tag's alone") {
  CTestMsg cMsg(120);
  for (int i : {1, 2, 3}) cMsg->SetValue(17, i);
  CIntArray aiOut;
  aiOut.Add(99);
  CHECK(cMsg->GetValue(17, &aiOut) == 0);
  REQUIRE(aiOut.GetSize() == 3);
  CHECK(aiOut.GetAt(0) == 1);
  CHECK(aiOut.GetAt(2) == 3);
}

TEST_CASE("GetValueAt: every index of a multi tag, any index of a single one") {
  CTestMsg cMsg(120);
  for (int i : {10, 20, 30}) cMsg->SetValue(17, i);
  cMsg->SetValue(7, 5);
  int iOut = 0;
  for (int i = 0; i < 3; ++i) {
    CHECK(cMsg->GetValueAt(17, i, &iOut) == 0);
    CHECK(iOut == (i + 1) * 10);
  }
  for (int i : {0, 1, 5, -1, INT_MAX, INT_MIN}) {
    iOut = 0;
    CHECK(cMsg->GetValueAt(7, i, &iOut) == 0);
    CHECK(iOut == 5);
  }
}

TEST_CASE("GetValueAt: an index outside the array returns -27 and says -1") {
  CTestMsg cMsg(120);
  for (const T_Tag& tTag : s_atTag) {
    if (tTag.bMulti) Fill(cMsg, tTag.iTag);
  }
  for (int iIndex : {1, -1, 5, INT_MAX, INT_MIN}) {
    CAPTURE(iIndex);
    CString sText("kept");
    int iValue = 9;
    double dValue = 9;
    bool bValue = true;
    CDate cDay("20240131");
    CMsg* pSub = &*cMsg;
    CHECK(cMsg->GetValueAt(11, iIndex, &sText) == -27);
    CHECK(cMsg->GetLastError() == std::string("MSG_Error(-1) : No Data found {tagnum=11}"));
    CHECK(cMsg->GetValueAt(17, iIndex, &iValue) == -27);
    CHECK(cMsg->GetLastError() == std::string("MSG_Error(-1) : No Data found {tagnum=17}"));
    CHECK(cMsg->GetValueAt(13, iIndex, &dValue) == -27);
    CHECK(cMsg->GetLastError() == std::string("MSG_Error(-1) : No Data found {tagnum=13}"));
    CHECK(cMsg->GetValueAt(14, iIndex, &bValue) == -27);
    CHECK(cMsg->GetLastError() == std::string("MSG_Error(-1) : No Data found {tagnum=14}"));
    CHECK(cMsg->GetValueAt(15, iIndex, &cDay) == -27);
    CHECK(cMsg->GetLastError() == std::string("MSG_Error(-1) : No Data found {tagnum=15}"));
    CHECK(cMsg->GetValueAt(16, iIndex, &pSub) == -27);
    CHECK(cMsg->GetLastError() == std::string("MSG_Error(-1) : No Data found {tagnum=16}"));
    CHECK(cMsg->GetValueAt("numbers", iIndex, &iValue) == -27);
    CHECK(sText == "kept");
    CHECK(iValue == 0);
    CHECK(dValue == 0);
    CHECK_FALSE(bValue);
    CHECK(cDay.m_bSet);
    CHECK(pSub == nullptr);
  }
}

TEST_CASE("GetArrSize counts the values of a tag of any type") {
  for (const T_Tag& tTag : s_atTag) {
    CAPTURE(tTag.szName);
    CTestMsg cMsg(120);
    CHECK(cMsg->GetArrSize(tTag.iTag) == -1);
    CHECK(cMsg->GetLastError() == "MSG_Error(-1) : No Data found {tagnum=" + std::to_string(tTag.iTag) + "}");
    Fill(cMsg, tTag.iTag, true);
    CHECK(cMsg->GetArrSize(tTag.iTag) == 1);
    Fill(cMsg, tTag.iTag, false);
    CHECK(cMsg->GetArrSize(tTag.iTag) == (tTag.bMulti ? 2 : 1));
    CHECK(cMsg->GetArrSize(CName(tTag.szName)) == (tTag.bMulti ? 2 : 1));
    CHECK(cMsg->GetArrSize(tTag.szName) == (tTag.bMulti ? 2 : 1));
  }
  CTestMsg cMsg(120), cNoDef(0);
  CHECK(cMsg->GetArrSize(-1) == -18);
  CHECK(cMsg->GetLastError() == std::string("MSG_Error(-18) : Not defined tag in dictionary {msgnum=120, tagnum=-1}"));
  CHECK(cMsg->GetArrSize(2) == -18);
  CHECK(cMsg->GetLastError() == std::string("MSG_Error(-18) : Not defined tag in dictionary {msgnum=120, tagnum=2}"));
  CHECK(cMsg->GetArrSize("nonesuch") == -18);
  CHECK(cNoDef->GetArrSize(7) == -19);
  CHECK(cNoDef->GetLastError() == std::string(s_szNoDefByTag));
  CHECK(cNoDef->GetArrSize("number") == -19);
  CHECK(cNoDef->GetLastError() == std::string(s_szNoDefByName));
}

TEST_CASE("string literals name tags in every operation") {
  CTestMsg cMsg(120);
  CHECK(cMsg->SetValue("text", "abc") == 0);
  CHECK(cMsg->SetValue("number", 5) == 0);
  CHECK(cMsg->SetValue("price", 1.5) == 0);
  CHECK(cMsg->SetValue("flag", true) == 0);
  CHECK(cMsg->SetValue("day", CDate("20240131")) == 0);
  CHECK(cMsg->SetValue("numbers", CInt(6)) == 0);
  CHECK(cMsg->SetValue("prices", CDbl(2.5)) == 0);
  CHECK(cMsg->SetValue("flags", CBool(true)) == 0);
  CHECK(cMsg->SetValue("row", NewRow(cMsg.Dic(), "row")) == 0);
  int iOut = 0;
  CHECK(cMsg->GetValue("numbers", &iOut) == 0);
  CHECK(iOut == 6);
  CHECK(cMsg->GetValueAt("numbers", 0, &iOut) == 0);
  CHECK(cMsg->GetArrSize("prices") == 1);
  CHECK(Say(cMsg->GetValue("row")) == "row");
  CHECK(Say(cMsg->GetValue(CName("row"))) == "row");
  CHECK(cMsg->GetValue("rows") == nullptr);
}

TEST_CASE("names and values in buffers, and tag 0 as a literal, are clear to the compiler") {
  char szText[] = "text", szNumber[] = "number", szPrice[] = "price", szNumbers[] = "numbers", szValue[] = "abc";
  const short iShort = -3;
  CTestMsg cMsg(120);
  CHECK(cMsg->SetValue(szText, szValue) == 0);
  CHECK(cMsg->SetValue(szNumber, iShort) == 0);
  CHECK(cMsg->SetValue(szPrice, 0.5f) == 0);
  CHECK(cMsg->SetValue(szNumbers, 'A') == 0);
  T_Rows apRow;
  CHECK(cMsg->SetValue("rows", NewRow(cMsg.Dic(), "row")) == 0);
  CHECK(cMsg->GetValue("rows", &apRow) == 0);
  CHECK(apRow.GetSize() == 1);
  CHECK(ToXml(*cMsg).substr(44) ==
        "<msg no=\"120\" ver=\"\"><t1><![CDATA[abc]]></t1><t7>-3</t7><t3>5.000000000000000e-01</t3><t17>65</t17>"
        "<t16><t1><![CDATA[row]]></t1></t16></msg>");
  CMsgDic cDic;
  for (const char* szType : {"string", "integer", "double"}) {
    const int iMsgNum = szType[0];
    cDic.SetMsgInfo(iMsgNum, "m", "", "");
    cDic.SetMsgDetail(iMsgNum, 0, "zero", szType, "N");
  }
  CMsg cString('s', 0, 0, &cDic), cInteger('i', 0, 0, &cDic), cDouble('d', 0, 0, &cDic);
  CHECK(cString.SetValue(0, szValue) == 0);
  CHECK(cInteger.SetValue(0, iShort) == 0);
  CHECK(cDouble.SetValue(0, 0.5f) == 0);
  CString sOut;
  int iOut = 0;
  double dOut = 0;
  CHECK(cString.GetValue(0, &sOut) == 0);
  CHECK(sOut == "abc");
  CHECK(cInteger.GetValue(0, &iOut) == 0);
  CHECK(iOut == -3);
  CHECK(cDouble.GetValueAt(0, 0, &dOut) == 0);
  CHECK(dOut == 0.5);
}

TEST_CASE("tag 0 and very large tag numbers are tags like others") {
  CMsgDic cDic;
  cDic.SetMsgInfo(5, "m", "", "7");
  cDic.SetMsgDetail(5, 0, "zero", "integer", "N");
  cDic.SetMsgDetail(5, INT_MAX, "most", "integer", "Y");
  CMsg cMsg(5, 0, 0, &cDic);
  int iOut = 0;
  CHECK(cMsg.SetValue(0, 1) == 0);
  CHECK(cMsg.SetValue(INT_MAX, 2) == 0);
  CHECK(cMsg.GetValue(0, &iOut) == 0);
  CHECK(iOut == 1);
  CHECK(cMsg.GetValue("most", &iOut) == 0);
  CHECK(iOut == 2);
}

TEST_CASE("a negative tag is refused before the dictionary is asked") {
  CMsgDic cDic;
  cDic.SetMsgInfo(5, "m", "", "7");
  cDic.GetMsgInfo(5)->SetTagInfo(-5, "negative", TAG_INTEGER, 0, false);
  CMsg cMsg(5, 0, 0, &cDic);
  int iOut = 0;
  CHECK(cMsg.SetValue(-5, 1) == -18);
  CHECK(cMsg.SetValue("negative", 1) == -18);
  CHECK(cMsg.GetLastError() == std::string("MSG_Error(-18) : Not defined tag in dictionary {msgnum=5, tagnum=-5}"));
  CHECK(cMsg.GetValue(-5, &iOut) == -18);
}

TEST_CASE("of a tag defined twice the first definition counts") {
  CMsgDic cDic;
  cDic.SetMsgInfo(5, "m", "", "");
  cDic.SetMsgDetail(5, 7, "first", "integer", "N");
  cDic.SetMsgDetail(5, 7, "second", "string", "Y");
  CMsg cMsg(5, 0, 0, &cDic);
  CHECK(cMsg.SetValue(7, "x") == -17);
  CHECK(cMsg.SetValue("second", 1) == 0);
  CHECK(cMsg.SetValue("first", 2) == 0);
  CHECK(cMsg.GetArrSize(7) == 1);
}
