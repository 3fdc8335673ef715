/* One exchange with the service, in C. */
#include "driver/prn.h"

#include <stdio.h>
#include <string.h>

static int failures = 0;

static void expect(int holds, const char *what) {
  if (holds) return;
  fprintf(stderr, "not so: %s\n", what);
  ++failures;
}

#define EXPECT(condition) expect(condition, #condition)

static const unsigned char kRequest[] = {
    0xb3, 0xec, 0x09, 0x9a, 0x22, 0x92, 0x48, 0xfa, 0x83, 0xd0, 0x06, 0x84, 0x0b, 0xc9,
    0x91, 0x02, 27,   0,    0,    0,    '{',  '"',  'P',  'r',  'o',  'p',  'e',  'r',
    't',  'y',  'G',  'e',  't',  'R',  'e',  'q',  'u',  'e',  's',  't',  's',  '"',
    ':',  '[',  ']',  ' ',  '}'};

int main(void) {
  static const char kReply[] = "{\"PropertyGetResponses\": []}";
  unsigned char reply[20 + sizeof kReply - 1];
  uint32_t handle;
  uint32_t out_count = 0;
  uint32_t received;

  EXPECT(PRN_Init(0) == 1);
  handle = PRN_Open(1, 0, 0);
  EXPECT(handle == 1);
  EXPECT(PRN_Write(handle, kRequest, sizeof kRequest) == (int32_t)sizeof kRequest);
  memset(reply, 0, sizeof reply);
  received = PRN_Read(handle, reply, sizeof reply);
  EXPECT(received == sizeof reply);
  EXPECT(memcmp(reply, kRequest, 16) == 0);
  EXPECT(reply[16] == sizeof kReply - 1);
  EXPECT(memcmp(reply + 20, kReply, sizeof kReply - 1) == 0);
  EXPECT(PRN_IOControl(handle, 0, NULL, 0, NULL, 0, &out_count) == 0);
  EXPECT(PRN_Close(handle) == 1);
  EXPECT(PRN_Write(handle, kRequest, 1) == -1);
  EXPECT(PRN_Deinit(1) == 1);
  return failures == 0 ? 0 : 1;
}
