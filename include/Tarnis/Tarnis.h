#pragma once

/// Every public header of the library, that of the one exception it throws, and that of what
/// failed.

#include <FileSystem/Failure.h>
#include <FileSystem/HandleFatalError.h>
#include <Tarnis/HostAuthenticator.h>
#include <Tarnis/HostAuthenticatorResponse.h>
#include <Tarnis/RemoteSession.h>
#include <Tarnis/RemoteSessionState.h>
#include <Tarnis/SSHAlgorithmMismatch.h>
#include <Tarnis/SSHChannel.h>
#include <Tarnis/SSHChannelTransfer.h>
#include <Tarnis/SSHDefaultDeleter.h>
#include <Tarnis/SSHExecuteResult.h>
#include <Tarnis/SSHFailureCode.h>
#include <Tarnis/SSHFileSystemSFTP.h>
#include <Tarnis/SSHFileSystemSFTPFile.h>
#include <Tarnis/SSHProcess.h>
#include <Tarnis/SSHSession.h>
#include <Tarnis/SessionBlockingGuard.h>
#include <Tarnis/UserAuthenticator.h>
#include <Tarnis/UserAuthenticatorResponse.h>
#include <Tarnis/Version.h>
