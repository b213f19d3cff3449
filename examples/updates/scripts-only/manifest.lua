-- An update without an image: it changes a file on the device, which stays on its set and does not restart.
--
-- An image's `dep` tests versions; here the preparation script does. In the folder above this one:
--
--   rovu-pack build scripts-only/manifest.lua --out scripts-only/www --key keys/private.pem \
--       --base-url http://updates.example/time-servers
--   rovu-pack check scripts-only/www/update.lua --files scripts-only/www --pub keys/rovu_pub.pem --strict \
--       --device model=RV-20,kernel=3.10.49-2,rootfs=2.4.1
--   rovu-pack rehearse scripts-only/www/update.lua --files scripts-only/www --pub keys/rovu_pub.pem \
--       --device model=RV-20,kernel=3.10.49-2,rootfs=2.4.1 --device refuses:model=RV-30,kernel=3.10.49-2,rootfs=2.4.1
--
-- check and the plan do not know what a script will say: a rehearsal of a device that the script refuses, such as one
-- with rootfs=2.3, FAILS with the script's message.
{
  version = 1,
  hardware = 'RV-20,RV-21',
  '_may-change.sh',
  'time-servers.sh',
  -- Ends the update. Without it, the device would switch to the other set, which this update does not write.
  'exit_success',
}
