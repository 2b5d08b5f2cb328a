#pragma once

#include <memory>
#include <mutex>

#include "core/wqstring.h"

inline constexpr int kDefaultTimeoutMs = 4000;
inline constexpr int kConfigPathSize = 512;

/// The whole configuration. A record of its own belongs to one thread; see QovSettings for the
/// shared one. Flags hold 0 or 1.
struct TQovSettings {
  // Run modes of the command line, never read from the file.
  unsigned interactive = 0;  ///< 1: foreground, messages on standard output
  unsigned verbose = 0;      ///< 1: messages go to the verbose log too
  unsigned debug = 0;        ///< 1: messages of the debug kind are emitted
  char configfile[kConfigPathSize] = {};

  String tmpdir;   ///< folder for temporary files
  String qovpath;  ///< full path of the agent's executable
  String pidfile;
  String host;              ///< address to listen on, empty for all
  int port = 0;             ///< TCP port to serve
  int timeout = 0;          ///< idle limit of a connection, milliseconds
  int delayforscripts = 0;  ///< pause before the CPU script and shell scripts, microseconds
  String password;
  String comment;
  String verboselogfile;
  int logsuccess = 0;
  String oklogfile;
  int filteractive = 0;
  int logfails = 0;
  String badlogfile;
  String filterlist;  ///< items separated by CR LF
  int allowupdates = 0;
  String updateaddr;
  String filtermarks;  ///< one character an item of filterlist, '1' = used
  int allowmanage = 0;
  String manageaddr;
  String effectivefilter;  ///< CR LF, then each marked item and CR LF; built by PutRight

  // One enable a test or action. The five without a key stand for tests of other platforms.
  int unc = 0;
  int freespace = 0;
  int foldersize = 0;
  int countfiles = 0;
  int fileexists = 0;
  int filecrc = 0;
  int comparefiles = 0;
  int process = 0;
  int service = 0;
  int ntlog = 0;
  int cpuusage = 0;
  int perfcounter = 0;
  int snmp = 0;
  int script = 0;
  int external = 0;
  int ping = 0;
  int tcp = 0;
  int udp = 0;
  int textlog = 0;
  int reserved = 0;
  int shellscript = 0;
  int executeaction = 0;
  int tcpudpaction = 0;
  int syslogaction = 0;

  String cpuusagescript;
  String proclistscript;
  String proccntscript;

  /// Sets the defaults, reads `configfile`, normalises and checks.
  /// @return 1 when all mandatory settings are valid (`err` may hold a warning), else 0 with the
  ///         reasons in `err` and the record left with the defaults and what the file set
  /// Deliberate: a "qovpath" in the file goes into QovSettings too, whichever record is loaded.
  int LoadOptions_(String& err);
  /// Rewrites `configfile` in place, keeping comments, order and unknown lines.
  /// @return 1, or 0 with the reason in `err` and the file as it was
  int SaveOptions_(String& err);
  /// Rebuilds the effective filter, completes script paths, settles the temporary folder.
  /// May put a warning into `err`.
  void PutRight(String& err);
};

/// The process-wide settings, worked on under `optmutex` once threads run. Requests read the
/// published copy instead: CurrentSettings.
extern TQovSettings QovSettings;
extern std::mutex optmutex;

/// LoadOptions_ into a fresh record under `optmutex`; the outcome becomes QovSettings and is
/// published, also after a failure. Any thread.
int LoadOptions(String& err);
/// SaveOptions_ of QovSettings under `optmutex`, then publishes. Any thread.
int SaveOptions(String& err);
/// Changes QovSettings under `optmutex`, then publishes it. Any thread.
void ChangeSettings(void (*change)(TQovSettings& settings, const void* context),
                    const void* context);
/// ChangeSettings and SaveOptions as one step; the change stays when the save fails.
int ChangeAndSaveSettings(void (*change)(TQovSettings& settings, const void* context),
                          const void* context, String& err);

using TSettingsView = std::shared_ptr<const TQovSettings>;
/// The settings as last published, or the ones this thread has pinned. Never null.
/// Any thread; never blocks on a load or save under way.
TSettingsView CurrentSettings();

/// While it lives, CurrentSettings gives this thread the record that was current at its making,
/// so that a request sees one complete record from beginning to end. One at a time per thread.
class TSettingsPin {
 public:
  TSettingsPin();
  ~TSettingsPin();
  TSettingsPin(const TSettingsPin&) = delete;
  TSettingsPin& operator=(const TSettingsPin&) = delete;
};

/// Folder for temporary files: `tmpdir` of the current settings, else TMPDIR, else TMP, else "".
String TempFolder();
/// From here on PutRight leaves the process environment alone: threads may read it. Children get
/// their TMPDIR from TempFolder.
void FreezeEnvironment();
