"""What the tests of the service's processes ask of it, and what the supervisor prints."""

from wire import Reply

ACCOUNT = "<Account><User1><Username>admin</Username></User1></Account>"
USERNAME = "read:Account.User1.Username"
ADMIN = Reply(len("Account.User1.Username=admin"), b"Account.User1.Username=admin")

EXITING = "Veltracord Exiting....\n"
RESTART = "restart Veltracord....\n"
