// Encrypted files: what comes out is as long as the padding says and encrypts to what went in.
#include "callorv/crypt/crypt.h"
#include "support.h"

namespace {

std::string BytesOf(const CStream& p_st) { return std::string(p_st.GetData(), static_cast<size_t>(p_st.GetSize())); }

void Fill(CStream& p_stOut, const std::string& p_s) {
  p_stOut.Clear();
  ExpectSame(p_stOut.AppendData(p_s.data(), static_cast<int>(p_s.size())), 0, "AppendData");
}

}    // namespace

int LLVMFuzzerTestOneInput(const uint8_t* p_pData, size_t p_uSize) {
  static CInputFile s_cFile(".exml");
  const std::string sInput(reinterpret_cast<const char*>(p_pData), p_uSize);
  CStream stInput(0, 512), stPlain(0, 512), stAgain(0, 512), stFile(0, 512);
  CString sErr;
  Fill(stInput, sInput);

  const bool bBlocks = sInput.size() % CCrypt::CIPHER_BLOCK == 0;
  ExpectSame(CCrypt::DecryptStream(stInput, stPlain, sErr), bBlocks ? 0 : -1, "DecryptStream");
  if (!bBlocks) ExpectSame(sErr.ToStr(), "Input data is corrupted", "text of DecryptStream");
  s_cFile.Write(sInput);
  ExpectSame(CCrypt::DecryptFileToStream(s_cFile.Path(), stFile, sErr), bBlocks ? 0 : -3, "DecryptFileToStream");
  ExpectSame(sErr.ToStr(), bBlocks ? "" : "File may be corrupted", "text of DecryptFileToStream");
  ExpectSame(BytesOf(stFile), BytesOf(stPlain), "the file's text");
  if (bBlocks && !sInput.empty()) {
    // Whole blocks of the text give the same blocks again; of the last one, up to 16 bytes were taken off.
    const std::string sPlain = BytesOf(stPlain);
    const size_t uLast = sInput.size() - CCrypt::CIPHER_BLOCK;
    Expect(sPlain.size() >= uLast && sPlain.size() <= sInput.size(), "length of the text");
    ExpectSame(CCrypt::EncryptStream(stPlain, stAgain, sErr), 0, "EncryptStream");
    const size_t uWhole = sPlain.size() / CCrypt::CIPHER_BLOCK * CCrypt::CIPHER_BLOCK;
    ExpectSame(BytesOf(stAgain).substr(0, uWhole), sInput.substr(0, uWhole), "blocks encrypted again");
  } else {
    ExpectSame(stPlain.GetSize(), 0, "nothing comes out");
  }

  ExpectSame(CCrypt::EncryptStream(stInput, stAgain, sErr), 0, "EncryptStream");
  ExpectSame(stAgain.GetSize(), static_cast<long long>(sInput.size() / CCrypt::CIPHER_BLOCK + 1) * CCrypt::CIPHER_BLOCK,
             "encrypted length");
  ExpectSame(CCrypt::DecryptStream(stAgain, stPlain, sErr), 0, "DecryptStream of what was encrypted");
  ExpectSame(BytesOf(stPlain), sInput, "the text decrypted again");
  return 0;
}
