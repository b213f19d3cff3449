-- A complete update for two models: kernel, root file system, and a copy of the data. Most updates look like this.
--
-- The build system gives the versions and the folder of the images. In the folder above this one:
--
--   rovu-pack build both-images/manifest.lua --out both-images/www --key keys/private.pem \
--       --base-url http://updates.example/2.5 --set kernel=3.10.53 --set rootfs=2.5.0 --set images=../images
--   rovu-pack check both-images/www/update.lua --files both-images/www --pub keys/rovu_pub.pem --strict \
--       --device model=RV-20,kernel=3.10.49-2,rootfs=2.4.1 --device model=RV-21,kernel=3.10.51,rootfs=2.4.3
--   rovu-pack rehearse both-images/www/update.lua --files both-images/www --pub keys/rovu_pub.pem \
--       --device model=RV-20,kernel=3.10.49-2,rootfs=2.4.1 --device refuses:model=RV-30,kernel=3.10.49-2,rootfs=2.4.1
{
  version = 1,
  hardware = 'RV-20,RV-21',
  -- Without this the device would boot with the data of the last time that the other set ran.
  clone_overlay = 1,
  'save.sh',
  {
    type = 'kernel', update = 'mandatory', version = vars.kernel, image = 'kernel.img',
  },
  {
    type = 'rootfs', update = 'mandatory', version = vars.rootfs, image = 'rootfs.img',
    -- Both images are mandatory, so this is a test of the new kernel, not of the running one: a wrong pair is not built.
    dep = { { 'kernel', '3.10.50', '3.10.65535.65535' } },
  },
  files = {
    ['kernel.img'] = vars.images .. '/kernel.img',
    ['rootfs.img'] = vars.images .. '/rootfs.img',
  },
}
