/* poll: one question, one vote for each visitor, and a chart of the votes. A cookie identifies a
 * visitor: anyone who deletes it may vote again. Votes are appended to the file named by
 * TARN_POLL_FILE, one line each. The web server must be able to write that file and should not
 * serve it. Anything after the last line end in it is discarded. Votes are refused once the file
 * has STORE_BYTES, because each request reads them all.
 *
 *   cc -std=c99 -o poll poll.c -ltarn_form -ltarn -ltarn_serve
 *
 * with page.h and store.h in the same folder.
 */
#include "store.h"

#include <sys/random.h>

enum { CHOICES = 3, ID_BYTES = 16, ID_DIGITS = 32, YEAR_SECONDS = 31536000 };
enum { STORE_BYTES = 1 << 20 };

static const struct {
  const char *name;
  const char *label;
} choices[CHOICES] = {{"tea", "Tea"}, {"coffee", "Coffee"}, {"water", "Water"}};

static int choiceNamed(const char *name) {
  for (int i = 0; name && i < CHOICES; i++)
    if (strcmp(choices[i].name, name) == 0) return i;
  return -1;
}

static const char *const remarks[] = STORED_REMARKS("vote");

typedef struct {
  unsigned count[CHOICES];
  int own; /* this visitor's choice, or -1 */
} Votes;

/* Counts the votes; each line has an id and a choice. Returns false if they cannot be read. */
static int countVotes(FILE *lines, const char *visitor, Votes *votes) {
  char line[256];
  *votes = (Votes){{0}, -1};
  while (lines && fgets(line, sizeof line, lines)) {
    char *name = strchr(line, ' ');
    char *end = name ? strchr(name, '\n') : NULL;
    if (!end) continue;
    *name++ = *end = '\0';
    const int choice = choiceNamed(name);
    if (choice >= 0) votes->count[choice]++;
    if (choice >= 0 && strcmp(line, visitor) == 0) votes->own = choice;
  }
  return lines && !ferror(lines);
}

static FILE *openVotes(const char *path, short lock) {
  const int file = openStore(path, lock);
  FILE *lines = file < 0 ? NULL : fdopen(file, "r");
  if (file >= 0 && !lines) close(file);
  return lines;
}

/* Saves a vote, unless the visitor already has one: a form sent twice counts once. */
static Stored saveVote(const char *path, const char *visitor, int choice) {
  const char *const vote[] = {visitor, choices[choice].name};
  size_t length = 0;
  Votes votes;
  Stored stored = NOT_STORED;
  char *line = makeLine(vote, 2, &length);
  FILE *lines = line ? openVotes(path, F_WRLCK) : NULL;
  if (lines && countVotes(lines, visitor, &votes))
    stored = votes.own >= 0 ? STORED : appendLine(fileno(lines), line, length, STORE_BYTES);
  if (lines) fclose(lines);
  free(line);
  return stored;
}

/* An id is 16 random bytes, so nobody can guess one and use up another visitor's vote. It is not
 * signed: any text of the right form is accepted, so anyone who deletes the cookie or makes one up
 * can vote again. An id is good for one vote only; votes cannot be changed or withdrawn. */
static int isId(const char *text) {
  const size_t length = strlen(text);
  return length == ID_DIGITS && strspn(text, "0123456789abcdef") == length;
}

static int makeId(char id[ID_DIGITS + 1]) {
  unsigned char bytes[ID_BYTES];
  if (getrandom(bytes, sizeof bytes, 0) != sizeof bytes) return 0;
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

/* The label repeats the chart in words, for screen readers. */
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

/* Reads the current votes; false if they cannot be read. Without a file there are none. */
static int readVotes(const char *path, const char *visitor, Votes *votes) {
  FILE *lines = openVotes(path, F_RDLCK);
  const int none = !lines && errno == ENOENT;
  const int counted = countVotes(lines, visitor, votes);
  if (lines) fclose(lines);
  return counted || none;
}

static void showPage(const Votes *votes, const char *problem) {
  showProblem(problem);
  if (votes->own >= 0) {
    printf("<p>You voted for %s.</p>\n", choices[votes->own].label);
  } else {
    showForm();
  }
  showChart(votes->count);
  puts(
      "<p>A random number in a cookie identifies each visitor. It is not signed: anyone who "
      "deletes the cookie or makes one up can vote again.</p>");
  endPage();
}

static int script(void) {
  const char *path = getenv("TARN_POLL_FILE");
  TarnForm *form = TarnForm_open();
  const char *problem = "";
  const char *refused = readForm(form, &problem);
  const int post = isMethod("POST");
  const char *visitor = cookieValue(form, "visitor");
  const int known = isId(visitor);
  char *name = field(form, "choice");
  const int choice = choiceNamed(name);
  char id[ID_DIGITS + 1] = "";
  const char *status = "400 Bad Request";
  if (!path) {
    status = "500 Internal Server Error";
    problem = "TARN_POLL_FILE is not set, so votes cannot be saved.";
  } else if (!known && !makeId(id)) {
    status = "500 Internal Server Error";
    problem = "There are no random numbers, so nobody can vote now.";
  } else if (refused) {
    status = refused;
  } else if (!post) {
    status = "200 OK";
  } else if (!known) {
    problem = "Your vote arrived without a cookie, so it was not counted. Please vote again.";
  } else if (choice < 0) {
    status = "422 Unprocessable Content";
    problem = "Please choose an answer.";
  } else {
    const Stored stored = saveVote(path, visitor, choice);
    status = storedStatus(stored);
    problem = remarks[stored];
  }
  if (post && !*problem) {
    seeOther("");
    puts("");
  } else {
    Votes votes;
    if (!readVotes(path ? path : "", visitor, &votes) && !*problem) {
      status = "500 Internal Server Error";
      problem = "The votes could not be read.";
    }
    printf("Status: %s\n", status);
    if (*id) setCookie("visitor", id, YEAR_SECONDS);
    if (beginPage("Poll")) showPage(&votes, problem);
  }
  free(name);
  TarnForm_close(form);
  return endResponse();
}

int main(void) { return tarn_serve(script); }
