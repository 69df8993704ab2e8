// Turns the elements of a dictionary file into message and tag definitions.
#include "dict/msg_dic_handler.h"

#include <algorithm>

#include "callorv/base/exception.h"
#include "callorv/base/stream.h"
#include "callorv/crypt/crypt.h"

using namespace callorv::detail;

namespace {

constexpr T_XmlUse s_tUse{" : ", " : ", "", s_szNoMemory, true};

// How much of each of the parser's characters a name is compared by: attributes are known by the low bytes, elements
// are not.
enum : unsigned { LOW_BYTE = 0xff, WHOLE = 0xffff };

bool IsName(const char16_t* p_szWide, const char* p_sz, unsigned p_uMask) {
  for (; *p_sz != 0; ++p_szWide, ++p_sz) {
    if ((*p_szWide & p_uMask) != static_cast<unsigned char>(*p_sz)) return false;
  }
  return (*p_szWide & p_uMask) == 0;
}

// Some attributes of an element, by local name. Of one that stands there twice, in two name spaces, the last counts.
struct T_Wanted {
  const char* szName;
  CString& sValue;
};
template <size_t N>
void GetAttributes(CXmlAttributes p_cAttrs, const T_Wanted (&p_atWanted)[N]) {
  for (size_t i = 0; i < p_cAttrs.GetCount(); ++i) {
    const char16_t* szName = p_cAttrs.GetName(i);
    const auto fnIs = [szName](const T_Wanted& p_tWanted) { return IsName(szName, p_tWanted.szName, LOW_BYTE); };
    // They mostly come in the order of the list.
    const T_Wanted* pEnd = p_atWanted + N;
    const T_Wanted* pWanted = i < N && fnIs(p_atWanted[i]) ? p_atWanted + i : std::find_if(p_atWanted, pEnd, fnIs);
    if (pWanted != pEnd) pWanted->sValue.Set(CNarrow(p_cAttrs.GetValue(i)).Text());
  }
}

[[noreturn]] void ThrowUnknown(const char* p_szWhat, const char16_t* p_szName) {
  throw CException(MSG_XML, "Unknown %s - %s", p_szWhat, CTranscoded(p_szName).Text());
}

}    // namespace

CDicFileHandler::CDicFileHandler() : CXmlHandler(s_tUse) {}

void CDicFileHandler::Action(const char* p_szPath) {
  if (p_szPath == nullptr) throw CException("Parameter is NULL", MSG_NULL);
  const auto fnParse = [&] {
    if (!CString(p_szPath).EndsWith(".exml")) return ParseFile(p_szPath);
    CStream stXml(0, 512);
    CString sReason;
    if (CCrypt::DecryptFileToStream(p_szPath, stXml, sReason) < 0)
      throw CException(MSG_DIC_LOAD, "%s", sReason.ToStr());
    return ParseText(stXml.GetData(), static_cast<size_t>(stXml.GetSize()), u"MsgDic.xml", false);
  };
  Parse(std::ref(fnParse));
}

void MsgDicHandler::OnStart(const char16_t* p_szName, CXmlAttributes p_cAttrs, int p_iDepth) {
  switch (p_iDepth) {
    case 1:
      if (!IsName(p_szName, "msg_dictionary", WHOLE)) ThrowUnknown("root element", p_szName);
      break;
    case 2: {
      if (!IsName(p_szName, "msg", WHOLE)) ThrowUnknown("element", p_szName);
      CString sNo, sName, sVer, sHash;
      GetAttributes(p_cAttrs, {{"no", sNo}, {"name", sName}, {"ver", sVer}, {"hash", sHash}});
      m_iMsgNum = sNo.ToInt();
      m_pDic->SetMsgInfo(m_iMsgNum, sName, sVer, sHash);
      break;
    }
    case 3: {
      if (IsName(p_szName, "constraint", WHOLE)) break;
      if (!IsName(p_szName, "tag", WHOLE)) ThrowUnknown("child element", p_szName);
      CString sNo, sName, sType, sArray(m_sSingle);
      GetAttributes(p_cAttrs, {{"no", sNo}, {"name", sName}, {"type", sType}, {"array", sArray}});
      m_pDic->SetMsgDetail(m_iMsgNum, sNo.ToInt(), sName, sType, sArray);
      break;
    }
    default: break;    // what stands inside a tag or constraint is free
  }
}
