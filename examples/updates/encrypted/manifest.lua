-- An encrypted update: whoever fetches the files cannot read them. The spec itself stays readable.
--
-- `preshared` is the devices' key file, /app0/secrets/rovu/preshared there, and `offset` the place of a key in it, as
-- `rovu-pack secret preshared` has printed it. In the folder above this one:
--
--   rovu-pack build encrypted/manifest.lua --out encrypted/www --key keys/private.pem --secrets preshared \
--       --base-url http://updates.example/2.5 --set kernel=3.10.53 --set rootfs=2.5.0 --set images=../images \
--       --set offset=0
--   rovu-pack check encrypted/www/update.lua --files encrypted/www --pub keys/rovu_pub.pem --secrets preshared \
--       --strict --device model=RV-20,kernel=3.10.49-2,rootfs=2.4.1
--   rovu-pack rehearse encrypted/www/update.lua --files encrypted/www --pub keys/rovu_pub.pem --secrets preshared \
--       --device model=RV-20,kernel=3.10.49-2,rootfs=2.4.1 --device refuses:model=RV-30,kernel=3.10.49-2,rootfs=2.4.1
{
  version = 1,
  hardware = 'RV-20,RV-21',
  clone_overlay = 1,
  encr_key_offset = vars.offset + 0,  -- a number
  'save.sh',
  {
    type = 'kernel', update = 'mandatory', version = vars.kernel, image = 'kernel.img',
  },
  {
    type = 'rootfs', update = 'mandatory', version = vars.rootfs, image = 'rootfs.img',
  },
  files = {
    ['save.sh'] = '../both-images/save.sh',
    ['kernel.img'] = vars.images .. '/kernel.img',
    ['rootfs.img'] = vars.images .. '/rootfs.img',
  },
}
