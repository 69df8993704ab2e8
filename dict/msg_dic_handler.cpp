// Turns the elements of a dictionary file into message and tag definitions.
#include "dict/msg_dic_handler.h"

#include <algorithm>
#include <memory>
#include <xercesc/framework/LocalFileInputSource.hpp>
#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/sax2/Attributes.hpp>
#include <xercesc/util/BinFileInputStream.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/XMLString.hpp>

#include "callorv/base/exception.h"
#include "callorv/base/stream.h"
#include "callorv/crypt/crypt.h"
#include "xml/reader_memory.h"

using namespace xercesc;
using namespace callorv::detail;

namespace {

constexpr T_XmlUse s_tUse{" : ", " : ", "", true};

struct T_Wide {
  XMLCh* psz;
  explicit T_Wide(const char* p_sz) : psz(XMLString::transcode(p_sz)) {}
  ~T_Wide() { XMLString::release(&psz); }
  T_Wide(const T_Wide&) = delete;
  T_Wide& operator=(const T_Wide&) = delete;
};

// A local file, opened by the bytes of its name: nothing that looks like a URL reaches the network, and a name that the
// locale cannot express still opens. Its base loses memory when it finds too little, hence one that knows its blocks.
struct T_SourceMemory {
  CReaderMemory cMemory;
};
class CFileSource : private T_SourceMemory, public LocalFileInputSource {
 public:
  explicit CFileSource(const char* p_szPath) : LocalFileInputSource(T_Wide(p_szPath).psz, &cMemory), m_szPath(p_szPath) {}
  BinInputStream* makeStream() const override {
    auto pFile = std::make_unique<BinFileInputStream>(m_szPath);
    return pFile->getIsOpen() ? pFile.release() : nullptr;
  }

 private:
  const char* m_szPath;
};

// How much of each of the parser's characters a name is compared by: attributes are known by the low bytes, elements are not.
enum : unsigned { LOW_BYTE = 0xff, WHOLE = 0xffff };

bool IsName(const XMLCh* p_szWide, const char* p_sz, unsigned p_uMask) {
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
void GetAttributes(const Attributes& p_cAttrs, const T_Wanted (&p_atWanted)[N]) {
  for (XMLSize_t i = 0; i < p_cAttrs.getLength(); ++i) {
    const XMLCh* szName = p_cAttrs.getLocalName(i);
    const auto fnIs = [szName](const T_Wanted& p_tWanted) { return IsName(szName, p_tWanted.szName, LOW_BYTE); };
    // They mostly come in the order of the list.
    const T_Wanted* pEnd = p_atWanted + N;
    const T_Wanted* pWanted = i < N && fnIs(p_atWanted[i]) ? p_atWanted + i : std::find_if(p_atWanted, pEnd, fnIs);
    if (pWanted != pEnd) pWanted->sValue.Set(CNarrow(p_cAttrs.getValue(i)).Text());
  }
}

[[noreturn]] void ThrowUnknown(const char* p_szWhat, const XMLCh* p_szName) {
  throw CException(MSG_XML, "Unknown %s - %s", p_szWhat, T_Transcoded(p_szName).psz);
}

}    // namespace

CDicFileHandler::CDicFileHandler() : CXmlHandler(s_tUse) {}

void CDicFileHandler::Action(const char* p_szPath) {
  if (p_szPath == nullptr) throw CException("Parameter is NULL", MSG_NULL);
  const auto fnParse = [&] {
    if (!CString(p_szPath).EndsWith(".exml")) return ParseSource(CFileSource(p_szPath), false);
    CStream stXml(0, 512);
    CString sReason;
    if (CCrypt::DecryptFileToStream(p_szPath, stXml, sReason) < 0) throw CException(MSG_DIC_LOAD, "%s", sReason.ToStr());
    MemBufInputSource cSource(reinterpret_cast<const XMLByte*>(stXml.GetData()), static_cast<XMLSize_t>(stXml.GetSize()),
                              "MsgDic.xml", false);
    cSource.setCopyBufToStream(false);
    return ParseSource(cSource, false);
  };
  Parse(std::ref(fnParse));
}

void CDicFileHandler::endElement(const XMLCh* const, const XMLCh* const, const XMLCh* const) { Leave(); }

void MsgDicHandler::startElement(const XMLCh* const, const XMLCh* const p_szLocalName, const XMLCh* const,
                                 const Attributes& p_cAttrs) {
  switch (Enter()) {
    case 1:
      if (!IsName(p_szLocalName, "msg_dictionary", WHOLE)) ThrowUnknown("root element", p_szLocalName);
      break;
    case 2: {
      if (!IsName(p_szLocalName, "msg", WHOLE)) ThrowUnknown("element", p_szLocalName);
      CString sNo, sName, sVer, sHash;
      GetAttributes(p_cAttrs, {{"no", sNo}, {"name", sName}, {"ver", sVer}, {"hash", sHash}});
      m_iMsgNum = sNo.ToInt();
      m_pDic->SetMsgInfo(m_iMsgNum, sName, sVer, sHash);
      break;
    }
    case 3: {
      if (IsName(p_szLocalName, "constraint", WHOLE)) break;
      if (!IsName(p_szLocalName, "tag", WHOLE)) ThrowUnknown("child element", p_szLocalName);
      CString sNo, sName, sType, sArray(m_sSingle);
      GetAttributes(p_cAttrs, {{"no", sNo}, {"name", sName}, {"type", sType}, {"array", sArray}});
      m_pDic->SetMsgDetail(m_iMsgNum, sNo.ToInt(), sName, sType, sArray);
      break;
    }
    default: break;    // what stands inside a tag or constraint is free
  }
}
