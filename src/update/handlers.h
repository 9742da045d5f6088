// Handlers of the commands that change settings and move documents to and from files.
#pragma once

#include "handler/handler.h"

namespace veltrancord {

command_handler write_handle;           // write
command_handler writedbmem_handle;      // writedbmem
command_handler writeattr_handle;       // writeattr
command_handler upload_handle;          // upload
command_handler download_handle;        // download
command_handler restore_handle;         // restore
command_handler syncxml_handle;         // syncxml
command_handler remove_handle;          // remove
command_handler syncmemtoflash_handle;  // syncmemtoflash
command_handler xmldb_callback_handle;  // XMLDBCallBack

}  // namespace veltrancord
