/* Preloaded into the callorv command, keeps it ready behind all that happens before main(), and behind the parser's own
 * start, which an application may have made as well: the two take longer than most commands take. For each message on
 * the socket READY_SOCKET a child goes on into main(): a message is the umask, the folder, the number of arguments,
 * arguments and environment, each up to its NUL, with descriptors for standard input and both outputs. Answered by the
 * child's pid and, when it has ended, by its status. */
#include <dlfcn.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

enum { MOST_BYTES = 1 << 16, MOST_TEXTS = 1 << 12, STREAMS = 3 };

void StartParser(void);

typedef int Main(int, char**, char**);
typedef int StartMain(Main*, int, char**, void (*)(void), void (*)(void), void (*)(void), void*);

static Main* s_pMain;
static char s_szMessage[MOST_BYTES + 1];
static char* s_aszText[MOST_TEXTS + 2];

/* The size of the next message, 0 when there is none any more. */
static ssize_t Receive(int p_iSock, int* p_aiStream) {
  union {
    char acRoom[CMSG_SPACE(STREAMS * sizeof(int))];
    struct cmsghdr tAlign;
  } uControl;
  struct iovec tBytes = {s_szMessage, MOST_BYTES};
  struct msghdr tMessage = {.msg_iov = &tBytes, .msg_iovlen = 1, .msg_control = &uControl,
                            .msg_controllen = sizeof(uControl)};
  const ssize_t iGot = recvmsg(p_iSock, &tMessage, MSG_CMSG_CLOEXEC);
  const struct cmsghdr* pStreams = CMSG_FIRSTHDR(&tMessage);
  if (iGot <= 0 || pStreams == NULL || pStreams->cmsg_len != CMSG_LEN(STREAMS * sizeof(int))) return 0;
  memcpy(p_aiStream, CMSG_DATA(pStreams), STREAMS * sizeof(int));
  return iGot;
}

static int RunMain(ssize_t p_iSize, const int* p_aiStream) {
  for (int i = 0; i < STREAMS; ++i) dup2(p_aiStream[i], i);
  for (int i = 0; i < STREAMS; ++i) close(p_aiStream[i]);
  enum { UMASK, FOLDER, ARGS, TEXTS };
  int iTexts = 0;
  for (char* sz = s_szMessage; sz < s_szMessage + p_iSize && iTexts < MOST_TEXTS; sz += strlen(sz) + 1) {
    if (iTexts > ARGS && iTexts == TEXTS + atoi(s_aszText[ARGS])) s_aszText[iTexts++] = NULL;
    s_aszText[iTexts++] = sz;
  }
  umask((mode_t)atoi(s_aszText[UMASK]));
  if (chdir(s_aszText[FOLDER]) != 0) _exit(127);
  const int iArgs = atoi(s_aszText[ARGS]);
  environ = s_aszText + TEXTS + iArgs + 1;
  return s_pMain(iArgs, s_aszText + TEXTS, environ);
}

static int Serve(int p_iArgs, char** p_aszArg, char** p_aszEnv) {
  (void)p_iArgs, (void)p_aszArg, (void)p_aszEnv;
  const int iSock = atoi(getenv("READY_SOCKET"));
  int aiStream[STREAMS];
  StartParser();
  for (ssize_t iSize; (iSize = Receive(iSock, aiStream)) > 0;) {
    const pid_t iChild = fork();
    if (iChild == 0) {
      close(iSock);
      return RunMain(iSize, aiStream);
    }
    for (int i = 0; i < STREAMS; ++i) close(aiStream[i]);
    int aiAnswer[2] = {iChild, 0};
    send(iSock, &aiAnswer[0], sizeof(int), MSG_NOSIGNAL);
    waitpid(iChild, &aiAnswer[1], 0);
    send(iSock, &aiAnswer[1], sizeof(int), MSG_NOSIGNAL);
  }
  _exit(0);
}

StartMain __libc_start_main;
int __libc_start_main(Main* p_pMain, int p_iArgs, char** p_aszArg, void (*p_pInit)(void), void (*p_pFini)(void),
                      void (*p_pEnd)(void), void* p_pStack) {
  StartMain* pStart;
  *(void**)&pStart = dlsym(RTLD_NEXT, "__libc_start_main");
  s_pMain = p_pMain;
  return pStart(Serve, p_iArgs, p_aszArg, p_pInit, p_pFini, p_pEnd, p_pStack);
}
