/* The module as a C host sees it: found by name, started, subscribed to, unsubscribed, stopped. */
#include <dlfcn.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

typedef uint32_t (*InitFn)(uint32_t);
typedef uint32_t (*VoidFn)(void);
typedef uint32_t (*AddFn)(uint32_t, uint32_t, const void*);
typedef uint32_t (*DelFn)(uint32_t, uint32_t);

static int Check(int ok, const char* what) {
  if (!ok) fprintf(stderr, "failed: %s\n", what);
  return ok;
}

int main(int argc, char** argv) {
  if (!Check(argc == 2, "usage: load_module MODULE")) return 2;
  void* module = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
  if (!module) fprintf(stderr, "%s\n", dlerror());
  if (!Check(module != NULL, "dlopen")) return 1;
  InitFn init = (InitFn)dlsym(module, "SAVRO_TARQ_Init");
  VoidFn destory = (VoidFn)dlsym(module, "SAVRO_TARQ_Destory");
  VoidFn epoll_id = (VoidFn)dlsym(module, "SAVRO_TARQ_THREAD_GetEpollId");
  AddFn add = (AddFn)dlsym(module, "SAVRO_TARQ_FLOW_AddTlmTask");
  DelFn del = (DelFn)dlsym(module, "SAVRO_TARQ_FLOW_DelTlmTask");
  if (!Check(init && destory && epoll_id && add && del, "dlsym")) return 1;

  uint8_t description[3464];
  memset(description, 0, sizeof(description));
  int ok = Check(epoll_id() == 0xFFFFFFFFu, "no loop before the start");
  ok &= Check(init(1) == 0, "start");
  ok &= Check(epoll_id() != 0xFFFFFFFFu, "a loop after the start");
  ok &= Check(add(7, 100, description) == 0, "subscribe");
  ok &= Check(del(7, 100) == 0, "unsubscribe");
  ok &= Check(destory() == 0, "stop");
  ok &= Check(epoll_id() == 0xFFFFFFFFu, "no loop after the stop");
  return ok ? 0 : 1;
}
