// Messages as plain data: what a message must hold and how it must be written, worked out without the library.
#ifndef FUZZ_MODEL_H
#define FUZZ_MODEL_H

#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "callorv/dict/tag_info.h"
#include "callorv/msg/msg.h"

struct T_TagDef {
  int iTag;
  const char* szName;
  E_TagType eType;
  int iSub;    // message number of the rows of a TAG_SUBMSG
  bool bArray;
};
struct T_MsgDef {
  int iMsg;
  int iHash;
  std::vector<T_TagDef> atTag;    // in the dictionary's order

  const T_TagDef* Find(int p_iTag) const;    // null when there is none
};

// The messages that the process's dictionary has, which the first call loads; null for any other number.
const T_MsgDef* GetMsgDef(int p_iMsg);
const std::string& GetDictionary();    // as XML, not yet loaded

struct T_ModelMsg;
struct T_Value {    // the field that the tag's type asks for
  std::string s;    // also a date
  int i = 0;
  double d = 0;
  bool b = false;
  T_ModelMsg* pSub = nullptr;    // also null for a row whose message was freed
};
struct T_ModelMsg {
  const T_MsgDef* pDef = nullptr;    // null: no definition yet
  std::string sVer;
  std::map<int, std::vector<T_Value>> cValues;             // by tag; none is empty
  std::set<int> aiUnset;                                   // single tags whose sub-message was freed
  std::vector<std::unique_ptr<T_ModelMsg>> apOwned;        // what the message frees
  T_ModelMsg* pOwner = nullptr;
  bool bReplaced = false;    // its owner's single tag was set again
  bool bMade = false;        // made by its owner, not by the program
  bool bVacant = false;      // and nothing was stored in it since
  bool bEmpty = true;       // no value was ever stored
  CMsg* pMsg = nullptr;     // the message that this is the model of, where one is known
  std::string sError;       // its GetLastError()

  int Num() const { return pDef != nullptr ? pDef->iMsg : 0; }
  void Add(int p_iTag, const T_Value& p_tValue);    // as a setter does
  T_ModelMsg* AddSub(int p_iTag, std::unique_ptr<T_ModelMsg> p_pSub);    // taken; as one more value
  T_ModelMsg* Offer(int p_iTag, std::unique_ptr<T_ModelMsg> p_pSub);     // the same, but nothing was stored yet
  void Fill();               // something was stored
  T_Value* Find(const T_ModelMsg& p_cSub);    // where it stands; null when it cannot be reached
};

// A value for a tag of that type, made of the input's bytes; sub-messages aside. Texts hold no NUL.
class CInput;
T_Value TakeValue(CInput& p_cInput, E_TagType p_eType);
// Sets it through the C interface, and returns what that returned.
int SetValue(CMsg* p_pMsg, int p_iTag, E_TagType p_eType, const T_Value& p_tValue);

// Fills a new message, and the messages in it, with values made of the input's bytes; its model.
std::unique_ptr<T_ModelMsg> FillMsg(CInput& p_cInput, CMsg* p_pMsg, int p_iNesting = 0);

// The values, read from a message through the C interface.
std::unique_ptr<T_ModelMsg> ReadModel(CMsg* p_pMsg);
// What p_cMsg.ToXml writes.
std::string WriteXml(const T_ModelMsg& p_cMsg, bool p_bArrayPrefix, bool p_bByName);
// What p_cMsg.Dump writes, by number.
std::string WriteListing(const T_ModelMsg& p_cMsg);
// Whether that document is well-formed and means what was put in: nothing is escaped in it.
bool IsReadable(const T_ModelMsg& p_cMsg);
// What reading it gives: line ends are line feeds, texts are without blanks at their ends, and those that are blank are
// gone; doubles have 16 digits.
std::unique_ptr<T_ModelMsg> AsRead(const T_ModelMsg& p_cMsg);

// Writes the message and, if it is readable, reads it again; ends the process when anything differs from what p_cShould
// says. p_uForm: any number; its bits choose how elements are named, and whether they are indented.
void ExpectRoundTrip(CMsg* p_pMsg, const T_ModelMsg& p_cShould, unsigned p_uForm);

// p_pMsg->LoadXml, from a copy without a byte behind its NUL. Returns the code of the CException, 0 for none.
int LoadXml(CMsg* p_pMsg, const std::string& p_sXml);
std::string ToXml(const CMsg& p_cMsg, bool p_bArrayPrefix = false, bool p_bByName = false);

struct T_DestroyMsg {
  void operator()(CMsg* p_pMsg) const { MA_FreeMsg(p_pMsg); }
};
using CMsgPtr = std::unique_ptr<CMsg, T_DestroyMsg>;

#endif
