#pragma once

// Internal: what two sets of names share, the script functions SSH_... and the script class "SSHClient".

class YObject;

namespace yinet {

void ssh_upload(YObject& parameters);
void ssh_download(YObject& parameters);
void ssh_delete(YObject& parameters);

}  // namespace yinet
