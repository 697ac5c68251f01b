/* poll: one question, a vote for each visitor, and the votes as a chart. A cookie tells visitors
 * apart: who deletes it may vote again. The votes stand in the file that TARN_POLL_FILE names, a
 * line for each, which the web server must be able to write and should not serve.
 *
 *   cc -std=c99 -o poll poll.c -ltarn       (with page.h beside it)
 */
#include "page.h"

#include <sys/random.h>

enum { CHOICES = 3, ID_BYTES = 16, ID_DIGITS = 32, YEAR_SECONDS = 31536000 };

static const struct {
  const char *name;
  const char *label;
} choices[CHOICES] = {{"tea", "Tea"}, {"coffee", "Coffee"}, {"water", "Water"}};

static int choiceNamed(const char *name) {
  for (int i = 0; name && i < CHOICES; i++)
    if (strcmp(choices[i].name, name) == 0) return i;
  return -1;
}

/* Counts the votes; gives the visitor's own, or -1. */
static int countVotes(FILE *lines, const char *visitor, unsigned votes[CHOICES]) {
  char *vote[2];
  int own = -1;
  while (readLine(lines, vote, 2)) {
    const int choice = choiceNamed(vote[1]);
    if (choice >= 0) votes[choice]++;
    if (choice >= 0 && vote[0] && strcmp(vote[0], visitor) == 0) own = choice;
    free(vote[0]);
    free(vote[1]);
  }
  return own;
}

/* Keeps a vote, unless the visitor has one: a form sent twice counts once. */
static int keepVote(const char *path, const char *visitor, int choice) {
  FILE *lines = openLines(path, F_WRLCK);
  unsigned votes[CHOICES] = {0};
  const char *const vote[] = {visitor, choices[choice].name};
  if (countVotes(lines, visitor, votes) < 0) return addLine(lines, vote, 2);
  return fclose(lines) == 0;
}

/* An id is 16 random bytes: nobody can guess it, or take another visitor's vote. It is not signed:
 * a text that looks like an id is taken for one, so whoever deletes the cookie or makes one up can
 * vote again. An id can do nothing but vote, and once: no vote is changed or taken back. */
static int isId(const char *text) {
  const size_t length = strlen(text);
  return length == ID_DIGITS && strspn(text, "0123456789abcdef") == length;
}

static int makeId(char id[ID_DIGITS + 1]) {
  unsigned char bytes[ID_BYTES];
  if (getentropy(bytes, sizeof bytes) != 0) return 0;
  for (size_t i = 0; i < ID_BYTES; i++) sprintf(id + i * 2, "%02x", bytes[i]);
  return 1;
}

static void showForm(void) {
  puts("<form method=\"post\">\n<fieldset>\n<legend>What do you drink in the morning?</legend>");
  for (int i = 0; i < CHOICES; i++)
    printf(
        "<p><label><input type=\"radio\" name=\"choice\" value=\"%s\" required> %s</label></p>\n",
        choices[i].name, choices[i].label);
  puts("</fieldset>\n<p><button>Vote</button></p>\n</form>");
}

/* For those who do not see the chart, its label says the same in words. */
static void showChart(const unsigned *votes) {
  unsigned most = 1;
  printf("<svg width=\"320\" viewBox=\"0 0 320 %d\" role=\"img\" aria-label=\"Votes", CHOICES * 30);
  for (int i = 0; i < CHOICES; i++) {
    printf("%s %s %u", i ? "," : ":", choices[i].label, votes[i]);
    if (votes[i] > most) most = votes[i];
  }
  puts("\">");
  for (int i = 0; i < CHOICES; i++) {
    const unsigned width = (unsigned)(180.0 * votes[i] / most);
    const int y = i * 30;
    printf("<text x=\"0\" y=\"%d\">%s</text>\n", y + 20, choices[i].label);
    printf("<rect x=\"80\" y=\"%d\" width=\"%u\" height=\"24\" fill=\"#06c\"/>\n", y + 3, width);
    printf("<text x=\"%u\" y=\"%d\">%u</text>\n", 88 + width, y + 20, votes[i]);
  }
  puts("</svg>");
}

static void showPage(const char *path, const char *visitor, const char *problem) {
  FILE *lines = openLines(path, F_RDLCK);
  unsigned votes[CHOICES] = {0};
  const int own = countVotes(lines, visitor, votes);
  if (lines) fclose(lines);
  showProblem(problem);
  if (own >= 0) {
    printf("<p>You voted for %s.</p>\n", choices[own].label);
  } else {
    showForm();
  }
  showChart(votes);
  puts(
      "<p>A random number in a cookie tells visitors apart. It is not signed: whoever deletes the "
      "cookie or makes one up can vote again.</p>");
  endPage();
}

int main(void) {
  const char *path = getenv("TARN_POLL_FILE");
  TarnHandle request = 0;
  const int taken = Tarn_new(&request) == TARN_OK && path;
  const int post = isMethod("POST");
  const char *visitor = cookieValue(&request, "visitor");
  const int known = isId(visitor);
  char *name = field(&request, "choice");
  const int choice = choiceNamed(name);
  char id[ID_DIGITS + 1] = "";
  const char *status = "400 Bad Request";
  const char *problem = "";
  if (!taken || (!known && !makeId(id))) {
    status = "500 Internal Server Error";
    problem = "TARN_POLL_FILE does not say where the votes are.";
  } else if (!post) {
    status = "200 OK";
  } else if (!known) {
    problem = "No cookie came with your vote, so it was not counted. Please vote once more.";
  } else if (choice < 0) {
    problem = "Please choose one.";
  } else if (!arrivedWhole(&request)) {
    problem = "Your vote did not arrive whole.";
  } else if (!keepVote(path, visitor, choice)) {
    status = "500 Internal Server Error";
    problem = "Your vote could not be kept.";
  }
  if (post && !*problem) {
    seeOther("");
    puts("");
  } else {
    printf("Status: %s\n", status);
    if (!known) setCookie("visitor", id, YEAR_SECONDS);
    if (beginPage("Poll")) showPage(path ? path : "", visitor, problem);
  }
  free(name);
  Tarn_delete(&request);
  return fflush(stdout) == 0 ? 0 : 1;
}
