#include "integration/sftp/SftpTest.h"
