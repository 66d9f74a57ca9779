// Where the words of the daemon go, of which there are some three hundred lines a photo.
#ifndef PACKAGING_DAEMON_LOG_H
#define PACKAGING_DAEMON_LOG_H

// Sends standard output and standard error away from whoever started the bus: into the file that
// TARN_LOG names, else into $XDG_RUNTIME_DIR/tarn-transcode/log, else nowhere. They stay as they
// are when TARN_LOG is "-", and, unless it is set, when they go to the journal already.
//
// Returns a descriptor of the former standard error, which exec() closes; -1 when nothing changed.
int redirectOutput();

#endif
