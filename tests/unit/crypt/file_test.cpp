// Files read whole, and encrypted files.
#include "crypt/file.h"

#include <callorv/crypt/crypt.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <functional>
#include <thread>

#include "support/child.h"
#include "support/fail_alloc.h"
#include "support/valgrind.h"
#include "unit/crypt/oracle.h"

namespace {

struct T_Result {
  int iRet;
  std::string sOut, sErr;
};

using Read = int (*)(const char* p_szName, CStream& p_stOut, CString& p_sErr);

int Plain(const char* p_szName, CStream& p_stOut, CString& p_sErr) {
  return callorv::detail::ReadFile(p_szName, p_stOut, p_sErr);
}

// The output stream and the text hold something before the call. No file stays open.
T_Result Run(Read p_fnRead, const char* p_szName) {
  CStream stOut(0, 512);
  CString sErr("before");
  Fill(stOut, "before");
  const long iOpen = OpenDescriptors();
  const int iRet = p_fnRead(p_szName, stOut, sErr);
  CHECK(OpenDescriptors() == iOpen);
  CHECK(stOut.GetData()[stOut.GetSize()] == 0);
  return {iRet, Bytes(stOut), sErr.ToStr()};
}
T_Result Run(Read p_fnRead, const std::string& p_sName) { return Run(p_fnRead, p_sName.c_str()); }
T_Result Decrypt(const std::string& p_sName) { return Run(CCrypt::DecryptFileToStream, p_sName); }

const Read s_afnBoth[] = {CCrypt::DecryptFileToStream, Plain};

std::string Sparse(const CTempDir& p_cDir, const char* p_szName, long long p_iSize) {
  const std::string sPath = p_cDir.Write(p_szName, "");
  std::filesystem::resize_file(sPath, static_cast<uintmax_t>(p_iSize));
  return sPath;
}

// Runs p_fnChange(descriptor) on a file after a reader has asked for its size and before the reader has it open: who
// opens a file that is leased waits until the holder, told by a signal, gives the lease up.
class CLeased {
 public:
  CLeased(const std::string& p_sPath, const std::function<void(int)>& p_fnChange) {
    sigset_t tSignals;
    sigemptyset(&tSignals);
    sigaddset(&tSignals, SIGIO);
    pthread_sigmask(SIG_BLOCK, &tSignals, &m_tBefore);
    m_iFile = open(p_sPath.c_str(), O_RDWR | O_CLOEXEC);
    REQUIRE(fcntl(m_iFile, F_SETLEASE, F_WRLCK) == 0);
    m_cThread = std::thread([this, tSignals, p_fnChange] {
      int iSignal;
      sigwait(&tSignals, &iSignal);
      p_fnChange(m_iFile);
      fcntl(m_iFile, F_SETLEASE, F_UNLCK);
    });
  }
  ~CLeased() {
    pthread_kill(m_cThread.native_handle(), SIGIO);    // a reader that opened nothing has not sent it
    m_cThread.join();
    close(m_iFile);
    pthread_sigmask(SIG_SETMASK, &m_tBefore, nullptr);
  }
  CLeased(const CLeased&) = delete;
  CLeased& operator=(const CLeased&) = delete;

 private:
  sigset_t m_tBefore;
  int m_iFile;
  std::thread m_cThread;
};

// The number of files that may be open is used up.
std::string WithoutDescriptors(Read p_fnRead, const std::string& p_sPath) {
  return InChild([&] {
    const rlimit tNone = {0, 0};
    setrlimit(RLIMIT_NOFILE, &tNone);
    CStream stOut(0, 512);
    CString sErr;
    stOut.AppendData("before", 6);
    const int iRet = p_fnRead(p_sPath.c_str(), stOut, sErr);
    return std::to_string(iRet) + " " + std::to_string(stOut.GetSize()) + " " + sErr.ToStr();
  });
}

}    // namespace

TEST_CASE("a file needs a name") {
  for (const Read fnRead : s_afnBoth) {
    const T_Result tResult = Run(fnRead, nullptr);
    CHECK(tResult.iRet == -1);
    CHECK(tResult.sErr == "p_szFileName is NULL");
    CHECK(tResult.sOut == "before");
  }
}

TEST_CASE("a file that is not there") {
  const CTempDir cDir;
  for (const Read fnRead : s_afnBoth) {
    T_Result tResult = Run(fnRead, "/no/such/100%s%n.exml");
    CHECK(tResult.iRet == -2);
    CHECK(tResult.sErr == "File not found(/no/such/100%s%n.exml)");
    CHECK(tResult.sOut.empty());

    tResult = Run(fnRead, "");
    CHECK(tResult.iRet == -2);
    CHECK(tResult.sErr == "File not found()");

    const std::string sLong = "/" + std::string(5000, 'n');
    tResult = Run(fnRead, sLong);
    CHECK(tResult.iRet == -2);
    CHECK(tResult.sErr == "File not found(" + sLong + ")");

    const std::string sLink = cDir.Path("link");
    std::filesystem::remove(sLink);
    std::filesystem::create_symlink(cDir.Path("nothing"), sLink);
    tResult = Run(fnRead, sLink);
    CHECK(tResult.iRet == -2);
    CHECK(tResult.sErr == "File not found(" + sLink + ")");

    tResult = Run(fnRead, cDir.Write("file", "") + "/in it");
    CHECK(tResult.iRet == -2);
    CHECK(tResult.sErr == "File not found(" + cDir.Path("file") + "/in it)");
  }
}

TEST_CASE("DecryptFileToStream: a size that is no multiple of 16 may be corrupted") {
  const CTempDir cDir;
  for (const size_t i : {1u, 2u, 8u, 15u, 17u, 31u, 4097u}) {
    CAPTURE(i);
    const T_Result tResult = Decrypt(cDir.Write("file", std::string(i, 'x')));
    CHECK(tResult.iRet == -3);
    CHECK(tResult.sErr == "File may be corrupted");
    CHECK(tResult.sOut.empty());
  }
}

TEST_CASE("a file that cannot be opened") {
  NOT_UNDER_VALGRIND("a limit of descriptors");
  const CTempDir cDir;
  const std::string sPath = cDir.Write("file", std::string(16, 'x'));
  for (const Read fnRead : s_afnBoth) {
    CHECK(WithoutDescriptors(fnRead, sPath) == "-5 0 File cannot be open(" + sPath + ")");
  }
}

TEST_CASE("DecryptFileToStream: the size is looked at before the file is opened") {
  const CTempDir cDir;
  CHECK(WithoutDescriptors(CCrypt::DecryptFileToStream, cDir.Write("file", std::string(17, 'x'))) ==
        "-3 0 File may be corrupted");
}

TEST_CASE("a file that a stream cannot hold cannot be opened") {
  const CTempDir cDir;
  const std::string sPath = Sparse(cDir, "file", 2147483648);
  for (const Read fnRead : s_afnBoth) {
    const T_Result tResult = Run(fnRead, sPath);
    CHECK(tResult.iRet == -5);
    CHECK(tResult.sErr == "File cannot be open(" + sPath + ")");
    CHECK(tResult.sOut.empty());
  }
  Sparse(cDir, "file", 2147483647);
  CHECK(Run(Plain, sPath).iRet == -5);
  CHECK(Decrypt(sPath).iRet == -3);
  Sparse(cDir, "file", 68719476736 + 16);    // 16 in 32 bits
  CHECK(Run(Plain, sPath).iRet == -5);
  CHECK(Decrypt(sPath).iRet == -5);
}

TEST_CASE("without memory for a file std::bad_alloc is thrown and the file is closed") {
  const CTempDir cDir;
  const std::string sPath = Sparse(cDir, "file", 2147483632);    // the largest that is tried
  CStream stOut(0, 512);
  CString sErr;
  const long iOpen = OpenDescriptors();
  for (const Read fnRead : s_afnBoth) {
    CFailAlloc cFail(1);
    CHECK(cFail.Run([&] { fnRead(sPath.c_str(), stOut, sErr); }));
    CHECK(stOut.GetSize() == 0);
  }
  CHECK(OpenDescriptors() == iOpen);
}

TEST_CASE("an empty file") {
  const CTempDir cDir;
  const std::string sPath = cDir.Write("file", "");
  for (const Read fnRead : s_afnBoth) {
    const T_Result tResult = Run(fnRead, sPath);
    CHECK(tResult.iRet == 0);
    CHECK(tResult.sErr.empty());
    CHECK(tResult.sOut.empty());
  }
}

TEST_CASE("ReadFile: every byte as it stands") {
  const CTempDir cDir;
  for (const size_t i : {1u, 16u, 4095u, 4096u, 4097u, 1000003u}) {
    CAPTURE(i);
    std::string sContent = CRandom(10).Bytes(i);
    sContent.replace(0, 1, 1, '\0');
    sContent.back() = '\n';
    const T_Result tResult = Run(Plain, cDir.Write("file", sContent));
    CHECK(tResult.iRet == 0);
    CHECK(tResult.sErr.empty());
    CHECK((tResult.sOut == sContent));
  }
}

TEST_CASE("DecryptFileToStream: files that OpenSSL has encrypted") {
  const CTempDir cDir;
  for (const size_t i : {0u, 1u, 15u, 16u, 17u, 4096u, 1000003u}) {
    CAPTURE(i);
    const std::string sPlain = CRandom(11).Bytes(i);
    T_Result tResult = Decrypt(cDir.Write("file", Openssl(sPlain, CALLORV_SEED_KEY, "-e")));
    CHECK(tResult.iRet == 0);
    CHECK(tResult.sErr.empty());
    CHECK((tResult.sOut == sPlain));

    std::filesystem::remove(cDir.Path("link"));
    std::filesystem::create_symlink("file", cDir.Path("link"));
    tResult = Decrypt(cDir.Path("link"));
    CHECK(tResult.iRet == 0);
    CHECK((tResult.sOut == sPlain));
  }
}

TEST_CASE("a folder reads as empty, whatever size it has") {
  const CTempDir cDir;
  T_Result tResult = Run(Plain, cDir.Path());
  CHECK(tResult.iRet == 0);
  CHECK(tResult.sErr.empty());
  CHECK(tResult.sOut.empty());

  tResult = Decrypt(cDir.Path());
  struct stat tStat = {};
  REQUIRE(stat(cDir.Path().c_str(), &tStat) == 0);
  const bool bBlocks = tStat.st_size % 16 == 0;    // on some file systems
  CHECK(tResult.iRet == (bBlocks ? 0 : -3));
  CHECK(tResult.sErr == (bBlocks ? "" : "File may be corrupted"));
  CHECK(tResult.sOut.empty());
}

TEST_CASE("pipes and devices read as empty, and nobody waits") {
  const CTempDir cDir;
  REQUIRE(mkfifo(cDir.Path("pipe").c_str(), 0600) == 0);
  const std::string asPath[] = {cDir.Path("pipe"), "/dev/zero", "/dev/null"};
  for (const std::string& sPath : asPath) {
    CAPTURE(sPath);
    for (const Read fnRead : s_afnBoth) {
      const T_Result tResult = Run(fnRead, sPath);
      CHECK(tResult.iRet == 0);
      CHECK(tResult.sErr.empty());
      CHECK(tResult.sOut.empty());
    }
  }
}

TEST_CASE("a pipe that may not be read cannot be opened") {
  const CTempDir cDir;
  const std::string sPath = cDir.Path("pipe");
  REQUIRE(mkfifo(sPath.c_str(), 0) == 0);
  REQUIRE(chmod(cDir.Path().c_str(), 0755) == 0);
  const bool bRoot = geteuid() == 0;    // who may read everything
  for (const Read fnRead : s_afnBoth) {
    if (bRoot) REQUIRE(seteuid(65534) == 0);
    const T_Result tResult = Run(fnRead, sPath);
    if (bRoot) REQUIRE(seteuid(0) == 0);
    CHECK(tResult.iRet == -5);
    CHECK(tResult.sErr == "File cannot be open(" + sPath + ")");
    CHECK(tResult.sOut.empty());
  }
}

TEST_CASE("a socket cannot be opened") {
  const CTempDir cDir;
  const std::string sPath = cDir.Path("sock");
  const int iSock = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un tAddr = {AF_UNIX, {}};
  sPath.copy(tAddr.sun_path, sizeof(tAddr.sun_path) - 1);
  REQUIRE(bind(iSock, reinterpret_cast<const sockaddr*>(&tAddr), sizeof(tAddr)) == 0);
  for (const Read fnRead : s_afnBoth) {
    const T_Result tResult = Run(fnRead, sPath);
    CHECK(tResult.iRet == -5);
    CHECK(tResult.sErr == "File cannot be open(" + sPath + ")");
    CHECK(tResult.sOut.empty());
  }
  close(iSock);
}

TEST_CASE("a file from after 2038 is read") {
  const CTempDir cDir;
  const std::string sPath = cDir.Write("file", Openssl("text", CALLORV_SEED_KEY, "-e"));
  const timespec atTime[] = {{4102444800, 0}, {4102444800, 0}};    // the year 2100
  REQUIRE(utimensat(AT_FDCWD, sPath.c_str(), atTime, 0) == 0);
  CHECK(Run(Plain, sPath).iRet == 0);
  const T_Result tResult = Decrypt(sPath);
  CHECK(tResult.iRet == 0);
  CHECK(tResult.sOut == "text");
}

TEST_CASE("a file that shrinks before it is opened gives what is left") {
  const CTempDir cDir;
  const std::string sPath = cDir.Write("file", std::string(32, 'x'));
  const CLeased cLeased(sPath, [](int p_iFile) { CHECK(ftruncate(p_iFile, 20) == 0); });
  const T_Result tResult = Run(Plain, sPath);
  CHECK(tResult.iRet == 0);
  CHECK(tResult.sOut == "xxxxxxxxxxxxxxxxxxxx");
}

TEST_CASE("DecryptFileToStream: an encrypted file that shrinks is corrupted") {
  const CTempDir cDir;
  const std::string sPath = cDir.Write("file", std::string(32, 'x'));
  const CLeased cLeased(sPath, [](int p_iFile) { CHECK(ftruncate(p_iFile, 20) == 0); });
  const T_Result tResult = Decrypt(sPath);
  CHECK(tResult.iRet == -7);
  CHECK(tResult.sErr == "Input data is corrupted");
  CHECK(tResult.sOut.empty());
}

TEST_CASE("a file that grows gives the bytes that it had") {
  const CTempDir cDir;
  const std::string sPath = cDir.Write("file", "0123456789abcdef");
  const CLeased cLeased(sPath, [](int p_iFile) { CHECK(pwrite(p_iFile, "more", 4, 16) == 4); });
  const T_Result tResult = Run(Plain, sPath);
  CHECK(tResult.iRet == 0);
  CHECK(tResult.sOut == "0123456789abcdef");
}
