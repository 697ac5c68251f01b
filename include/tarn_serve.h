/* Tarn's server: one program as a CGI script and as a FastCGI service.
 *
 * A script is a function. Started by a web server as a CGI script, in a shell or by tarn-run, the
 * program calls it once. Started with a listening socket, or with the option --listen, the program
 * serves FastCGI: for each request it forks a child that calls the function and finds its
 * environment, standard input, standard output and standard error as a CGI script does.
 *
 * @code
 * #include <stdio.h>
 * #include <tarn_serve.h>
 *
 * static int script(void) {
 *   puts("Content-Type: text/plain\r\n\r\nHello");
 *   return 0;
 * }
 *
 * int main(void) { return tarn_serve(script); }
 * @endcode
 *
 * Conventions that hold for every function:
 *
 *  1. Order. Call the other functions before tarn_serve() or tarn_serve_program(), from the only thread
 *     of the program. A script may also call tarn_confine(), and tarn_serve_option() just before it.
 *  2. Texts are null-terminated and may be freed after the call, except those of tarn_serve_program().
 *  3. Messages. Problems are reported on standard error.
 *  4. Processes. In a service, each request has a process of its own. What it changes in memory is gone
 *     with it, and a crash ends only that process. When the script returns, its stdio streams are
 *     flushed and the process ends with _exit(): exit handlers and destructors of static C++ objects
 *     do not run.
 *  5. Environment. A request sees the environment of the service, without the variables that belong
 *     to a request, and its own variables on top. HTTP_PROXY is removed, also from the environment of
 *     a CGI script.
 *  6. Descriptors. In a service, the process of a request has the descriptors 0, 1 and 2, and those
 *     that the callback of tarn_serve_prepare() left open.
 *
 * This header is valid C99 and C++11.
 */
#ifndef TARN_SERVE_H
#define TARN_SERVE_H

#if defined(__GNUC__)
#define TARN_SERVE_API __attribute__((__visibility__("default")))
#else
#define TARN_SERVE_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Serving ----------------------------------------------------------------------------------- */

/** Runs a script: once as a CGI script, or for each request as a FastCGI service.
 *
 *  It serves FastCGI if one of these holds: descriptor 0 is a listening socket; systemd passed sockets
 *  (LISTEN_FDS); an option --listen was given. The last two do not count if the environment has
 *  GATEWAY_INTERFACE or REQUEST_METHOD, because a web server has then started a CGI script. A service
 *  reads options from the command line of the process; they are those of tarn-serve(1). The command
 *  line of a CGI script is never read, because a visitor can choose it.
 *
 *  As a service it returns after SIGTERM or SIGINT, when the last request has been answered.
 *
 *  @param script  the script; what it returns is the exit status of the CGI script, and the
 *                 application status of the FastCGI request
 *  @return the exit status of the program: as CGI what `script` returned, or 1 if not all of
 *          standard output could be written; as a service 0, 1 if it cannot serve, 2 for a wrong option
 */
TARN_SERVE_API int tarn_serve(int (*script)(void));

/** Runs another program for each request, as tarn-serve(1) does. It does not read the command line of
 *  the process; see tarn_serve_arguments(). A service needs the program when it starts. If it is
 *  missing later, requests fail until it is there again.
 *
 *  @param arguments  the program, its arguments and a null pointer; a name without a slash is looked
 *                    up in PATH; they must stay valid until the call returns
 *  @return as tarn_serve(), but 127 if there is no such program and 126 if it may not be run; as CGI it
 *          returns only then
 */
TARN_SERVE_API int tarn_serve_program(char *const *arguments);

/** Sets what runs before the first request: reading templates, computing tables.
 *
 *  A service calls it when it starts, again after a reload or a crash of its worker, and each request
 *  begins with the memory as the callback left it. A CGI script calls it before the script. The
 *  callback must not start threads, which do not survive a fork. It sees no request. Descriptors that
 *  it opens stay open in every request, with one position for all of them: use pread(), or map files.
 *  Connect to databases in the script: requests must not share a connection. Seed random number
 *  generators in the script, or every request gets the same numbers. What the callback writes to
 *  standard output is not part of a response.
 *
 *  @param callback  returns 0, or the exit status with which the program ends; null for none
 */
TARN_SERVE_API void tarn_serve_prepare(int (*callback)(void));

/* ---- Options ----------------------------------------------------------------------------------- */

/** Sets an option as the command line does. An option of the command line replaces it.
 *
 *  tarn-serve(1) explains all of them: where to listen ("listen", "socket-mode"), how many requests run
 *  and wait ("children", "queue", "idle-connections"), limits ("seconds", "body-size",
 *  "address-space" and others), rights ("confine", "read", "write" and others), and what the service
 *  tells about itself ("status", "access-log", "access-log-format", "errors").
 *
 *  @param name   an option of tarn-serve(1) without its dashes, such as "listen" or "children"
 *  @param value  its value; null for an option without one
 *  @return 1; 0 with a message on standard error if there is no such option or its value is wrong.
 *          Addresses and paths are checked only when the service starts.
 */
TARN_SERVE_API int tarn_serve_option(const char *name, const char *value);

/** Reads options from arguments, up to the first that does not begin with "--", up to "--" or up to a
 *  null pointer. After this, tarn_serve() does not read the command line itself. For programs that
 *  have arguments of their own. Do not call it in a CGI script, where a visitor can choose the
 *  arguments.
 *
 *  @param count      how many arguments there are
 *  @param arguments  the arguments, without the name of the program
 *  @return how many of them were read; -1 after a message on standard error for a wrong option
 */
TARN_SERVE_API int tarn_serve_arguments(int count, char *const *arguments);

/* ---- Confinement ------------------------------------------------------------------------------- */

/** Confines the process, and all that it starts, to what options name: "read", "write" and "exec" with
 *  a path, "network", "unix-sockets" and "attributes". Everything else is denied, even if an
 *  attacker controls the script. Nothing can undo it. Descriptors that are open stay usable.
 *
 *  A script that tarn_serve() runs needs no call: with any of these options, or "confine", it is
 *  confined before it starts. Call this in a script that has to open something first, and set the
 *  options there, just before the call. In a process that is confined already, it changes nothing.
 *
 *  It needs Linux 5.13 with Landlock and seccomp. On other kernels it fails, unless the option
 *  "unconfined-if-unsupported" is set: then it applies what the kernel has, and says on standard error
 *  what is missing.
 *
 *  The script may read no file that is not named. So load locales, time zones, modules that look up
 *  users and hosts, and character sets first, or name their files. tarn-serve(1) explains what each
 *  option allows, and what remains possible. Call it while the process has one thread.
 *
 *  @return 1; 0 with errno set and a message on standard error if the process cannot be confined or a
 *          path cannot be used: the process may then be confined in part, so end it
 */
TARN_SERVE_API int tarn_confine(void);

#ifdef __cplusplus
}
#endif

#endif
