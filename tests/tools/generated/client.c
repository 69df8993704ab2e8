/* Calls a service that sends its request back, with generated functions, every one of message 4: C99. */
#include <callorv/callorv.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "every_msg_c.h"
#include "node_msg_c.h"

static int failed; /* the line of the first check that failed */
#define CHECK(what) \
  if (!(what) && failed == 0) failed = __LINE__

static void fill(CMsg* in) {
  int i;
  CHECK(msgs_Every_is(in) && !msgs_Node_is(in) && !msgs_Every_is(NULL));
  CHECK(!msgs_Every_has_text(in) && msgs_Every_count_texts(in) == 0 && msgs_Every_count_nodes(in) == 0);
  CHECK(msgs_Every_set_text(in, "text") == 0 && msgs_Every_set_number(in, 7) == 0);
  CHECK(msgs_Every_set_ratio(in, 1.5) == 0);
  CHECK(msgs_Every_set_flag(in, 2) == 0 && msgs_Every_set_day(in, "20260131") == 0);
  CHECK(msgs_Node_set_label(msgs_Every_new_node(in), "one") == 0);
  CHECK(msgs_Every_add_texts(in, "a") == 0 && msgs_Every_add_texts(in, "bc") == 0);
  CHECK(msgs_Every_add_numbers(in, 1) == 0 && msgs_Every_add_numbers(in, -2147483647 - 1) == 0);
  CHECK(msgs_Every_add_ratios(in, 0.5) == 0 && msgs_Every_add_ratios(in, -1e300) == 0);
  CHECK(msgs_Every_add_flags(in, 0) == 0 && msgs_Every_add_flags(in, 1) == 0);
  CHECK(msgs_Every_add_days(in, "20260101") == 0 && msgs_Every_add_days(in, "20260102") == 0);
  for (i = 0; i < 200; ++i) {
    CMsg* row = msgs_Every_add_nodes(in);
    CHECK(msgs_Node_set_label(row, i == 199 ? "last" : "row") == 0 && msgs_Node_new_next(row) != NULL);
  }
}

static void check_single(CMsg* out) {
  char buf[9], *copy;
  int number, flag = -1;
  double ratio;
  CHECK(msgs_Every_has_text(out) && msgs_Every_len_text(out) == 4);
  CHECK(msgs_Every_get_text(out, buf, 4) == -27 && msgs_Every_get_text(out, buf, 5) == 0 && strcmp(buf, "text") == 0);
  copy = msgs_Every_dup_text(out);
  CHECK(copy != NULL && strcmp(copy, "text") == 0);
  free(copy);
  CHECK(msgs_Every_get_number(out, &number) == 0 && number == 7);
  CHECK(msgs_Every_get_ratio(out, &ratio) == 0 && ratio == 1.5);
  CHECK(msgs_Every_get_flag(out, &flag) == 0 && flag == 1);
  CHECK(msgs_Every_get_flag(NULL, &flag) == -12 && flag == 1 && msgs_Every_get_flag(out, NULL) == -12);
  CHECK(msgs_Every_get_day(out, buf) == 0 && strcmp(buf, "20260131") == 0);
  CHECK(msgs_Every_has_node(out) && msgs_Node_get_label(msgs_Every_get_node(out), buf, sizeof buf) == 0);
  CHECK(strcmp(buf, "one") == 0);
  CHECK(msgs_Node_get_label(out, buf, sizeof buf) == -18);    /* not checked: message 4 has no tag 0 */
}

static void check_arrays(CMsg* out) {
  char buf[9], *copy;
  int number, flag;
  double ratio;
  CHECK(msgs_Every_count_texts(out) == 2 && msgs_Every_len_texts(out, 1) == 2 && msgs_Every_len_texts(out, 2) == -27);
  CHECK(msgs_Every_get_texts(out, 1, buf, 2) == -27);
  CHECK(msgs_Every_get_texts(out, 1, buf, 3) == 0 && strcmp(buf, "bc") == 0);
  copy = msgs_Every_dup_texts(out, 0);
  CHECK(copy != NULL && strcmp(copy, "a") == 0 && msgs_Every_dup_texts(out, 2) == NULL);
  free(copy);
  CHECK(msgs_Every_count_numbers(out) == 2 && msgs_Every_get_numbers(out, 1, &number) == 0 && number < -2147483647);
  CHECK(msgs_Every_count_ratios(out) == 2 && msgs_Every_get_ratios(out, 1, &ratio) == 0 && ratio == (double)-1e300);
  CHECK(msgs_Every_count_flags(out) == 2 && msgs_Every_get_flags(out, 0, &flag) == 0 && flag == 0);
  CHECK(msgs_Every_get_flags(out, 1, &flag) == 0 && flag == 1);
  CHECK(msgs_Every_count_days(out) == 2 && msgs_Every_get_days(out, 1, buf) == 0 && strcmp(buf, "20260102") == 0);
  CHECK(msgs_Every_count_nodes(out) == 200 && msgs_Every_get_nodes(out, 200) == NULL);
  CHECK(msgs_Node_get_label(msgs_Every_get_nodes(out, 199), buf, sizeof buf) == 0 && strcmp(buf, "last") == 0);
}

int main(int argc, char** argv) {
  CallOrv_Error error;
  CMsg *in, *out;
  int rc;
  if (argc != 2) return 2;
  CHECK(msgs_Every_new() == NULL);    /* no dictionary is loaded */
  if (CallOrv_Initialize(argv[1], &error) < 0) return printf("%s\n", error.szText), 1;
  in = msgs_Every_new();
  out = MSG_GetNewMsg(0, NULL);
  fill(in);
  rc = CallOrv_CallService(1201, in, out, &error);
  if (rc == 0) {
    CHECK(msgs_Every_is(out));
    check_single(out);
    check_arrays(out);
  }
  printf("%d, %s; first check that failed: line %d\n", rc, rc == 0 ? "" : error.szText, failed);
  MSG_Destroy(in);
  MSG_Destroy(out);
  return rc != 0 || failed != 0;
}
