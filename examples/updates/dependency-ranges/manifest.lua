-- A root file system that runs with some kernels, and a kernel for the devices that have none of these.
--
-- A device whose kernel is in the range fetches and writes the root file system alone. It then boots the kernel that
-- its other set holds, which `check` warns of (stale-volume), and which the preparation script compares with the running
-- one. If you do not need the smaller download, make the kernel mandatory: see both-images. In the folder above this
-- one:
--
--   rovu-pack build dependency-ranges/manifest.lua --out dependency-ranges/www --key keys/private.pem \
--       --base-url http://updates.example/2.5 --set kernel=3.10.53 --set rootfs=2.5.0 --set images=../images
--   rovu-pack check dependency-ranges/www/update.lua --files dependency-ranges/www --pub keys/rovu_pub.pem \
--       --device model=RV-20,kernel=3.10.51,rootfs=2.4.1,inactive-kernel=3.10.51 \
--       --device model=RV-21,kernel=3.10.49-2,rootfs=2.4.1
--   rovu-pack rehearse dependency-ranges/www/update.lua --files dependency-ranges/www --pub keys/rovu_pub.pem \
--       --device model=RV-20,kernel=3.10.51,rootfs=2.4.1 --device model=RV-20,kernel=3.10.49-2,rootfs=2.4.1 \
--       --device model=RV-20,kernel=3.8.13,rootfs=2.4.1 --device refuses:model=RV-30,kernel=3.10.51,rootfs=2.4.1
{
  version = 1,
  hardware = 'RV-20,RV-21',
  clone_overlay = 1,
  '_may-apply.sh',
  'save.sh',
  {
    type = 'kernel', update = 'optional', version = vars.kernel, image = 'kernel.img',
  },
  {
    type = 'rootfs', update = 'mandatory', version = vars.rootfs, image = 'rootfs.img',
    -- All entries must hold: every 3.10, but no 3.10.49, whatever its fourth field is (the 2 of 3.10.49-2).
    dep = { { 'kernel', '3.10', '3.10.65535.65535' }, { '!kernel', '3.10.49', '3.10.49.65535' } },
  },
  files = {
    ['save.sh'] = '../both-images/save.sh',
    ['kernel.img'] = vars.images .. '/kernel.img',
    ['rootfs.img'] = vars.images .. '/rootfs.img',
  },
}
